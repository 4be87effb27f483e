// Texts inside a node.
#include "json_text.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

#include "json_scan.h"

namespace qo_json {
namespace {

/// Takes the bytes that the validator passes on.
struct NoOutput {
    void Put(char) {}
};

/// Bytes allocated for a text of that length: as many as the allocator's pieces have anyway, so that a text whose
/// length varies a little stays where it is.
constexpr size_t capacity_for(size_t length) {
    constexpr size_t kStep = 16;
    constexpr size_t kUsedByAllocator = 8;
    return (length + 1 + kUsedByAllocator - 1) / kStep * kStep + kUsedByAllocator;
}

}  // namespace

Text& Text::operator=(Text&& other) noexcept {
    if (this == &other) return *this;
    release();
    std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    other.set_inline_length(0);
    return *this;
}

void Text::assign(std::string_view bytes) {
    if (bytes.size() <= kInlineCapacity) {
        release();
        bytes.copy(bytes_, bytes.size());
        set_inline_length(bytes.size());
        return;
    }
    const bool fits = bytes_[kInlineCapacity] == kOwned && capacity_for(far_length()) == capacity_for(bytes.size());
    char* far = fits ? far_bytes() : new char[capacity_for(bytes.size())];
    bytes.copy(far, bytes.size());
    far[bytes.size()] = '\0';
    if (!fits) release();
    refer_to(far, bytes.size(), kOwned);
}

bool is_utf8(std::string_view bytes) {
    const size_t ascii = ascii_prefix(bytes);
    bytes.remove_prefix(ascii);
    rapidjson::MemoryStream input(bytes.data(), bytes.size());
    NoOutput output;
    while (input.Tell() < bytes.size())
        if (!rapidjson::UTF8<>::Validate(input, output)) return false;
    return true;
}

}  // namespace qo_json
