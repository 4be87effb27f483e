/// Looks through the bytes of a text a machine word at a time.
#ifndef QO_JSON_SCAN_H
#define QO_JSON_SCAN_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qo_json {

using Word = uintptr_t;
inline constexpr size_t kWordBytes = sizeof(Word);

static_assert(std::endian::native == std::endian::little, "the first byte of a word has to be its lowest");

inline constexpr Word kEveryByte = ~Word{0} / 0xFF;    // 0x0101...
inline constexpr Word kHighBits = kEveryByte * 0x80U;  // 0x8080...

inline Word load_word(const char* bytes) {
    Word word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

inline void store_word(char* bytes, Word word) { std::memcpy(bytes, &word, sizeof word); }

// The marks below are the high bits of bytes: the lowest mark is exact, those above it may be false.

inline Word marks_of(Word word, char wanted) {
    const Word difference = word ^ kEveryByte * static_cast<unsigned char>(wanted);
    return (difference - kEveryByte) & ~difference & kHighBits;
}

/// Bytes below `limit`, which is at most 128.
inline Word marks_below(Word word, unsigned char limit) { return (word - kEveryByte * limit) & ~word & kHighBits; }

inline size_t first_mark(Word marks) { return static_cast<size_t>(std::countr_zero(marks)) / 8; }

inline constexpr unsigned char kFirstPrintable = 0x20;

/// Bytes that may not stand as they are inside the quotes of a JSON text: quotes, backslashes, control characters.
inline Word marks_of_escaped(Word word) {
    return marks_of(word, '"') | marks_of(word, '\\') | marks_below(word, kFirstPrintable);
}

inline bool is_escaped(char c) { return c == '"' || c == '\\' || static_cast<unsigned char>(c) < kFirstPrintable; }

/// How many bytes come before the first that has to be escaped.
inline size_t plain_prefix(std::string_view bytes) {
    size_t at = 0;
    for (; bytes.size() - at >= kWordBytes; at += kWordBytes)
        if (const Word marks = marks_of_escaped(load_word(bytes.data() + at)); marks != 0)
            return at + first_mark(marks);
    while (at < bytes.size() && !is_escaped(bytes[at])) ++at;
    return at;
}

/// How many bytes come before the first that is not ASCII.
inline size_t ascii_prefix(std::string_view bytes) {
    size_t at = 0;
    for (; bytes.size() - at >= kWordBytes; at += kWordBytes)
        if (const Word marks = load_word(bytes.data() + at) & kHighBits; marks != 0) return at + first_mark(marks);
    while (at < bytes.size() && static_cast<unsigned char>(bytes[at]) < 0x80) ++at;
    return at;
}

}  // namespace qo_json

#endif
