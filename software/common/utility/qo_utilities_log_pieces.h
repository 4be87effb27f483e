/// A line of the log in pieces that follow each other, so that nobody has to put it together.
#ifndef QO_UTILITIES_LOG_PIECES_H
#define QO_UTILITIES_LOG_PIECES_H

#include <stdarg.h>
#include <sys/uio.h>

#include <cstddef>
#include <limits>

/// What printf() would make of a format, when that is simple: plain text, "%s", "%c", "%%", and "%d", "%i", "%u" and
/// "%x" of an int, a long ("l") or a size ("z"), without flags, width or precision. Texts are not copied: they and the
/// format have to stay while the pieces are in use. Takes no lock, nothing from the heap, and leaves errno alone.
class QoLogPieces {
public:
    static constexpr size_t kMaxPieces = 12;

    QoLogPieces() = default;
    QoLogPieces(const QoLogPieces&) = delete;
    QoLogPieces& operator=(const QoLogPieces&) = delete;

    /// To be called once. `arguments` may be used again afterwards.
    /// @return false when printf() has to do it: the format is not simple or takes too many pieces, which are of no use
    bool put(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

    const iovec* pieces() const { return pieces_; }
    size_t count() const { return static_cast<size_t>(end_ - pieces_); }

private:
    struct Arguments;

    bool is_full() const { return end_ == pieces_ + kMaxPieces; }
    bool add(const char* text, size_t length) {
        if (length == 0) return true;
        if (is_full()) return false;
        *end_++ = {const_cast<char*>(text), length};
        return true;
    }
    bool add_text(const char* text);
    bool add_character(int character);
    template <class Number>
    bool add_number(Number number, int base);
    const char* put_conversion(const char* conversion, Arguments& arguments);
    template <class Signed, class Unsigned>
    bool put_number(char conversion, Arguments& arguments);

    static constexpr size_t kLongestNumber =
        std::numeric_limits<unsigned long>::digits10 + 2;  // bytes, a sign included

    iovec pieces_[kMaxPieces];
    iovec* end_ = pieces_;
    char printed_[kMaxPieces * kLongestNumber];  // numbers and characters
    char* printed_end_ = printed_;
};

#endif
