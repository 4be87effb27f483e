/// Texts of one width, for columns. Header only; any thread.
#ifndef QO_CTL_PADDED_H
#define QO_CTL_PADDED_H

#include <string>

/// `text` with blanks behind it, or before it when `right`, up to `width` characters.
inline std::string qo_ctl_padded(const std::string& text, size_t width, bool right = false) {
    const std::string blanks(width > text.size() ? width - text.size() : 0, ' ');
    return right ? blanks + text : text + blanks;
}

#endif
