/// Texts of others, made fit for a terminal. Pure functions; any thread.
#ifndef QO_CTL_HARMLESS_H
#define QO_CTL_HARMLESS_H

#include <string>
#include <string_view>

/// A text in which nothing is left that a terminal obeys or that turns the direction of writing: control characters
/// (U+0000 to U+001F, U+007F to U+009F) and bidirectional ones as "\u009b", bytes that are not UTF-8 as "\x9b". A JSON
/// text stays the same JSON.
/// @param kept of U+0000 to U+001F
std::string qo_ctl_harmless(std::string_view text, std::string_view kept = "");

#endif
