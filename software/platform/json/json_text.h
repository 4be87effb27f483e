/// A name or value text inside a node: 16 bytes, up to 15 of them text without an allocation of its own.
#ifndef QO_JSON_TEXT_H
#define QO_JSON_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace qo_json {

/// Longest text of a node, in bytes.
inline constexpr size_t kMaxTextLength = std::numeric_limits<uint32_t>::max() - 1;

/// Owns its bytes, unless they were borrowed; always NUL-terminated behind them. Moving does not keep the address of
/// short texts.
class Text {
public:
    Text() { set_inline_length(0); }
    /// `bytes` are at most kMaxTextLength long.
    explicit Text(std::string_view bytes) : Text() { assign(bytes); }
    Text(Text&& other) noexcept {
        std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        other.set_inline_length(0);
    }
    Text& operator=(Text&& other) noexcept;
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    ~Text() { release(); }

    std::string_view view() const {
        if (is_inline()) return {bytes_, kInlineCapacity - static_cast<size_t>(bytes_[kInlineCapacity])};
        return {far_bytes(), far_length()};
    }

    /// Puts a copy to where there is room for so many bytes more than the text has.
    static constexpr size_t kCopySpare = 16;
    void copy_to(char* room) const {
        if (is_inline())
            std::memcpy(room, bytes_, sizeof bytes_);
        else
            std::memcpy(room, far_bytes(), far_length());
    }

    /// Keeps its memory where that is of the right size. `bytes` are not its own. No change when it throws.
    void assign(std::string_view bytes);
    /// Refers to bytes that somebody else owns and that are followed by a NUL.
    void borrow(std::string_view bytes) {
        release();
        refer_to(bytes.data(), bytes.size(), kBorrowed);
    }

private:
    // Short: the text, NUL-padded; the last byte counts the unused bytes and so is the NUL of a text of 15 bytes.
    // Far: the pointer, at kLengthOffset the length as uint32_t, and in the last byte who owns it.
    static constexpr size_t kInlineCapacity = 15;
    static constexpr size_t kLengthOffset = 8;
    static constexpr char kOwned = 16;
    static constexpr char kBorrowed = 17;

    bool is_inline() const { return bytes_[kInlineCapacity] < kOwned; }
    char* far_bytes() const {
        char* far = nullptr;
        std::memcpy(&far, bytes_, sizeof far);
        return far;
    }
    size_t far_length() const {
        uint32_t length = 0;
        std::memcpy(&length, bytes_ + kLengthOffset, sizeof length);
        return length;
    }
    void set_inline_length(size_t length) {
        std::memset(bytes_ + length, 0, kInlineCapacity - length);
        bytes_[kInlineCapacity] = static_cast<char>(kInlineCapacity - length);
    }
    void refer_to(const char* far, size_t length, char owner) {
        const auto short_length = static_cast<uint32_t>(length);
        std::memcpy(bytes_, &far, sizeof far);
        std::memcpy(bytes_ + kLengthOffset, &short_length, sizeof short_length);
        bytes_[kInlineCapacity] = owner;
    }
    void release() {
        if (bytes_[kInlineCapacity] == kOwned) delete[] far_bytes();
    }

    alignas(char*) char bytes_[kInlineCapacity + 1];
    static_assert(sizeof bytes_ <= kCopySpare);
};

/// Whether every character of `bytes` is well-formed UTF-8, NUL characters included.
bool is_utf8(std::string_view bytes);

}  // namespace qo_json

#endif
