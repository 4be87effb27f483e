// Texts inside a node.
#include "json_text.h"

#include <cstring>

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

namespace qo_json {
namespace {

/// Takes the bytes that the validator passes on.
struct NoOutput {
    void Put(char) {}
};

}  // namespace

Text::Text(std::string_view bytes) {
    if (bytes.size() <= kInlineCapacity) {
        bytes.copy(bytes_, bytes.size());
        set_inline_length(bytes.size());
        return;
    }
    char* heap = new char[bytes.size() + 1];
    bytes.copy(heap, bytes.size());
    heap[bytes.size()] = '\0';
    const auto length = static_cast<uint32_t>(bytes.size());
    std::memcpy(bytes_, &heap, sizeof heap);
    std::memcpy(bytes_ + kLengthOffset, &length, sizeof length);
    bytes_[kInlineCapacity] = kOnHeap;
}

Text::Text(Text&& other) noexcept {
    std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    other.set_inline_length(0);
}

Text& Text::operator=(Text&& other) noexcept {
    if (this == &other) return *this;
    release();
    std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    other.set_inline_length(0);
    return *this;
}

std::string_view Text::view() const {
    if (!on_heap()) return {bytes_, kInlineCapacity - static_cast<size_t>(bytes_[kInlineCapacity])};
    uint32_t length = 0;
    std::memcpy(&length, bytes_ + kLengthOffset, sizeof length);
    return {heap_bytes(), length};
}

void Text::set_inline_length(size_t length) {
    std::memset(bytes_ + length, 0, kInlineCapacity - length);
    bytes_[kInlineCapacity] = static_cast<char>(kInlineCapacity - length);
}

char* Text::heap_bytes() const {
    char* heap = nullptr;
    std::memcpy(&heap, bytes_, sizeof heap);
    return heap;
}

void Text::release() {
    if (on_heap()) delete[] heap_bytes();
}

bool is_utf8(std::string_view bytes) {
    rapidjson::MemoryStream input(bytes.data(), bytes.size());
    NoOutput output;
    while (input.Tell() < bytes.size())
        if (!rapidjson::UTF8<>::Validate(input, output)) return false;
    return true;
}

}  // namespace qo_json
