/// Looks through the bytes of a text many at a time.
#ifndef QO_JSON_SCAN_H
#define QO_JSON_SCAN_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qo_json {

inline constexpr unsigned char kFirstPrintable = 0x20;
inline constexpr unsigned char kFirstNotAscii = 0x80;

/// Whether the byte may not stand as it is inside the quotes of a JSON text: quotes, backslashes, control characters.
inline bool is_escaped(char c) { return c == '"' || c == '\\' || static_cast<unsigned char>(c) < kFirstPrintable; }

// A block is looked at as a whole. What is found comes as marks, of which only the first counts: there may be false
// ones behind it.

#ifdef __SSE2__

/// 16 bytes.
class Block {
public:
    using Marks = unsigned;

    explicit Block(const char* bytes) : bytes_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes))) {}
    /// @param count fewer than a block has
    Block(const char* bytes, size_t count)
        : bytes_(count < kHalf ? _mm_set_epi64x(0, half(bytes, count))
                               : _mm_set_epi64x(half(bytes + kHalf, count - kHalf), half(bytes, kHalf))) {}
    void store(char* bytes) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), bytes_); }

    Marks escaped() const {
        // With this bit changed, quotes come next to the control characters, which stay among themselves.
        constexpr char kBit = '"' ^ kFirstPrintable;
        const __m128i changed = _mm_xor_si128(bytes_, _mm_set1_epi8(kBit));
        const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(changed, _mm_set1_epi8('"' ^ kBit)), changed);
        const __m128i backslash = _mm_cmpeq_epi8(changed, _mm_set1_epi8('\\' ^ kBit));
        return static_cast<Marks>(_mm_movemask_epi8(_mm_or_si128(control, backslash)));
    }
    Marks not_ascii() const { return static_cast<Marks>(_mm_movemask_epi8(bytes_)); }

    static size_t first(Marks marks) { return static_cast<size_t>(std::countr_zero(marks)); }

private:
    static constexpr size_t kHalf = sizeof(int64_t);

    template <typename Number>
    static uint64_t load(const char* bytes) {
        Number number = 0;
        std::memcpy(&number, bytes, sizeof number);
        return number;
    }

    /// Up to eight bytes, by two loads that overlap.
    static int64_t half(const char* bytes, size_t count) {
        uint64_t joined = 0;
        if (count == kHalf)
            joined = load<uint64_t>(bytes);
        else if (count >= 4)
            joined = load<uint32_t>(bytes) | load<uint32_t>(bytes + count - 4) << 8 * (count - 4);
        else if (count >= 2)
            joined = load<uint16_t>(bytes) | load<uint16_t>(bytes + count - 2) << 8 * (count - 2);
        else if (count == 1)
            joined = load<uint8_t>(bytes);
        return static_cast<int64_t>(joined);
    }

    __m128i bytes_;
};

#else

/// A machine word.
class Block {
public:
    using Marks = uintptr_t;

    explicit Block(const char* bytes) { std::memcpy(&bytes_, bytes, sizeof bytes_); }
    /// @param count fewer than a block has
    Block(const char* bytes, size_t count) : bytes_(0) {
        for (size_t i = 0; i < count; ++i) bytes_ |= uintptr_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
    }
    void store(char* bytes) const { std::memcpy(bytes, &bytes_, sizeof bytes_); }

    Marks escaped() const {
        return equal('"') | equal('\\') | ((bytes_ - kEveryByte * kFirstPrintable) & ~bytes_ & kHighBits);
    }
    Marks not_ascii() const { return bytes_ & kHighBits; }

    static size_t first(Marks marks) { return static_cast<size_t>(std::countr_zero(marks)) / 8; }

private:
    static_assert(std::endian::native == std::endian::little, "the first byte of a word has to be its lowest");
    static constexpr uintptr_t kEveryByte = ~uintptr_t{0} / 0xFF;        // 0x0101...
    static constexpr uintptr_t kHighBits = kEveryByte * kFirstNotAscii;  // 0x8080...

    Marks equal(char wanted) const {
        const uintptr_t difference = bytes_ ^ kEveryByte * static_cast<unsigned char>(wanted);
        return (difference - kEveryByte) & ~difference & kHighBits;
    }

    uintptr_t bytes_;
};

#endif

inline constexpr size_t kBlockBytes = sizeof(Block);

/// How many bytes come before the first that has to be escaped.
inline size_t plain_prefix(std::string_view bytes) {
    size_t at = 0;
    for (; bytes.size() - at >= kBlockBytes; at += kBlockBytes) {
        const Block::Marks marks = Block(bytes.data() + at).escaped();
        if (marks != 0) return at + Block::first(marks);
    }
    return at + Block::first(Block(bytes.data() + at, bytes.size() - at).escaped());
}

/// How many bytes come before the first that is not ASCII.
inline size_t ascii_prefix(std::string_view bytes) {
    constexpr size_t kAtOnce = 4;
    size_t at = 0;
    for (; bytes.size() - at >= kAtOnce * kBlockBytes; at += kAtOnce * kBlockBytes) {
        Block::Marks marks = 0;
#pragma GCC unroll 4
        for (size_t i = 0; i < kAtOnce; ++i) marks |= Block(bytes.data() + at + i * kBlockBytes).not_ascii();
        if (marks != 0) break;
    }
    for (; bytes.size() - at >= kBlockBytes; at += kBlockBytes) {
        const Block::Marks marks = Block(bytes.data() + at).not_ascii();
        if (marks != 0) return at + Block::first(marks);
    }
    while (at < bytes.size() && static_cast<unsigned char>(bytes[at]) < kFirstNotAscii) ++at;
    return at;
}

}  // namespace qo_json

#endif
