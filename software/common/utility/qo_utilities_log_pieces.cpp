// From a printf format to the pieces of a line.
#include "qo_utilities_log_pieces.h"

#include <string.h>

#include <charconv>

struct QoLogPieces::Arguments {
    ~Arguments() { va_end(list); }
    va_list list;
};

bool QoLogPieces::put(const char* format, va_list arguments) {
    if (format == nullptr) return false;
    Arguments own;
    va_copy(own.list, arguments);
    for (const char* text = format; text != nullptr;) {
        const char* const percent = strchrnul(text, '%');
        if (!add(text, static_cast<size_t>(percent - text))) return false;
        if (*percent == '\0') return true;
        text = put_conversion(percent + 1, own);
    }
    return false;
}

// @return what follows the conversion; null when it is not a simple one
const char* QoLogPieces::put_conversion(const char* conversion, Arguments& arguments) {
    bool put = false;
    switch (*conversion) {
        case '%':
            put = add(conversion, 1);
            break;
        case 's':
            put = add_text(va_arg(arguments.list, const char*));
            break;
        case 'c':
            put = add_character(va_arg(arguments.list, int));
            break;
        case 'l':  // NOLINT(bugprone-branch-clone): a size is no long where both have 32 bits
            put = put_number<long, unsigned long>(*++conversion, arguments);
            break;
        case 'z':
            put = put_number<ssize_t, size_t>(*++conversion, arguments);
            break;
        default:
            put = put_number<int, unsigned>(*conversion, arguments);
    }
    return put ? conversion + 1 : nullptr;
}

template <class Signed, class Unsigned>
bool QoLogPieces::put_number(char conversion, Arguments& arguments) {
    if (conversion == 'd' || conversion == 'i') return add_number(va_arg(arguments.list, Signed), 10);
    if (conversion == 'u') return add_number(va_arg(arguments.list, Unsigned), 10);
    if (conversion == 'x') return add_number(va_arg(arguments.list, Unsigned), 16);
    return false;
}

bool QoLogPieces::add_text(const char* text) {
    if (text == nullptr) text = "(null)";
    return add(text, strlen(text));
}

bool QoLogPieces::add_character(int character) {
    if (is_full()) return false;
    char* const begin = printed_end_;
    *printed_end_++ = static_cast<char>(character);
    return add(begin, 1);
}

template <class Number>
bool QoLogPieces::add_number(Number number, int base) {
    if (is_full()) return false;
    char* const begin = printed_end_;
    printed_end_ = std::to_chars(begin, begin + kLongestNumber, number, base).ptr;
    return add(begin, static_cast<size_t>(printed_end_ - begin));
}
