/// What a text that arrives at a component is about, without a JSON library: the texts are looked through once, and a
/// text that is no JSON is as good as any. Header of the library's own.
#ifndef QO_PUSHPULL_CLIENT_TEXT_H
#define QO_PUSHPULL_CLIENT_TEXT_H

#include <string>
#include <string_view>
#include <vector>

/// The names of a pointer, without empty ones: {"system", "status"}.
std::vector<std::string> qo_pointer_names(std::string_view pointer);

/// Whether a published text has the node of the pointer or goes through it to one below, as the service finds it: by
/// the names of members, to the first array, which is taken for holding the rest. A name that is written with a
/// backslash is taken for any name.
bool qo_text_reaches(std::string_view text, std::string_view pointer);

#endif
