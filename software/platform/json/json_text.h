/// A name or value text inside a node: 16 bytes, up to 15 of them text without an allocation of its own.
#ifndef QO_JSON_TEXT_H
#define QO_JSON_TEXT_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace qo_json {

/// Longest text of a node, in bytes.
inline constexpr size_t kMaxTextLength = std::numeric_limits<uint32_t>::max() - 1;

/// Owns its bytes; always NUL-terminated behind them. Moving does not keep the address of short texts.
class Text {
public:
    Text() { set_inline_length(0); }
    /// `bytes` are at most kMaxTextLength long.
    explicit Text(std::string_view bytes);
    Text(Text&& other) noexcept;
    Text& operator=(Text&& other) noexcept;
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    ~Text() { release(); }

    std::string_view view() const;

private:
    // Short: the text, NUL-padded; the last byte counts the unused bytes and so is the NUL of a text of 15 bytes.
    // Long: the pointer, at kLengthOffset the length as uint32_t, and kOnHeap in the last byte.
    static constexpr size_t kInlineCapacity = 15;
    static constexpr size_t kLengthOffset = 8;
    static constexpr char kOnHeap = 16;

    void set_inline_length(size_t length);
    bool on_heap() const { return bytes_[kInlineCapacity] == kOnHeap; }
    char* heap_bytes() const;
    void release();

    alignas(char*) char bytes_[kInlineCapacity + 1];
};

/// Whether every character of `bytes` is well-formed UTF-8, NUL characters included.
bool is_utf8(std::string_view bytes);

}  // namespace qo_json

#endif
