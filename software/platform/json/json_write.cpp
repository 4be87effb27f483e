// From nodes to text.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "json_allocator.h"
#include "json_node.h"
#include "json_part_writer.h"

namespace qo_json {
namespace {

/// The growing text that a writer puts its characters into; ends up in the caller's hands without another copy.
class TextOutput {
public:
    TextOutput() = default;
    TextOutput(const TextOutput&) = delete;
    TextOutput& operator=(const TextOutput&) = delete;
    ~TextOutput() { std::free(bytes_); }

    /// Room for so many bytes, which advance() then makes part of the text.
    char* room_for(size_t count) {
        if (bytes_ == nullptr || capacity_ - size_ < count) grow(size_ + count);
        return bytes_ + size_;
    }
    void advance(size_t count) { size_ += count; }

    size_t size() const { return size_; }

    /// The text, NUL-terminated, for json_free.
    char* release() {
        *room_for(1) = '\0';
        void* fitting = std::realloc(bytes_, size_ + 1);
        char* text = fitting == nullptr ? bytes_ : static_cast<char*>(fitting);
        bytes_ = nullptr;
        return text;
    }

private:
    void grow(size_t wanted) {
        constexpr size_t kFirstCapacity = 256;
        const size_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_ + capacity_ / 2;
        capacity_ = std::max(capacity, wanted);
        bytes_ = static_cast<char*>(reallocate(bytes_, capacity_));
    }

    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

/// Nodes each of which, but the last, has the next among its children.
using Path = std::span<JSONNODE* const>;

/// Writes the first node of the path; of each node on it only the next one, and all of the last.
template <typename Output>
void write_path(Output& output, Path path, bool formatted) {
    struct Level {
        const JSONNODE* container;
        std::span<JSONNODE* const> children;  // to be written
        size_t next;
    };
    PartWriter writer(output, formatted);
    std::vector<Level> open;
    const auto children_of = [&](const JSONNODE* container) -> std::span<JSONNODE* const> {
        const size_t below = open.size() + 1;
        if (below < path.size()) return path.subspan(below, 1);
        if (child_count(container) == 0) return {};
        return container->children->items;
    };
    const auto start = [&](const JSONNODE* node) {
        if (!is_container(node)) return writer.put_scalar(node->type, value_text(node));
        writer.put(brackets_of(node->type).open);
        if (const auto children = children_of(node); children.empty())
            writer.put(brackets_of(node->type).close);
        else
            open.push_back({node, children, 0});
    };

    start(path.front());
    while (!open.empty()) {
        auto& [container, children, next] = open.back();
        if (next == children.size()) {
            writer.end_children(open.size() - 1, brackets_of(container->type).close);
            open.pop_back();
            continue;
        }
        const bool is_first = next == 0;
        const JSONNODE* child = children[next++];
        if (container->type == JSON_NODE)
            writer.begin_member(is_first, open.size(), child->name.view());
        else
            writer.begin_element(is_first, open.size());
        start(child);
    }
}

char* write_text(const JSONNODE* node, bool formatted, size_t* length) {
    TextOutput output;
    auto* only_read = const_cast<JSONNODE*>(node);
    if (node != nullptr) write_path(output, Path(&only_read, 1), formatted);
    if (length != nullptr) *length = output.size();
    return node == nullptr ? nullptr : output.release();
}

int write_pieces(Path path, bool formatted, json_writer write, void* context) {
    if (path.empty() || path.front() == nullptr || write == nullptr) return 0;
    PieceOutput output(write, context);
    write_path(output, path, formatted);
    return output.finish() ? 1 : 0;
}

}  // namespace
}  // namespace qo_json

char* json_write_n(const JSONNODE* node, size_t* length) { return qo_json::write_text(node, false, length); }

char* json_write_formatted_n(const JSONNODE* node, size_t* length) { return qo_json::write_text(node, true, length); }

int json_write_formatted_to(const JSONNODE* node, json_writer write, void* context) {
    auto* only_read = const_cast<JSONNODE*>(node);
    return qo_json::write_pieces(qo_json::Path(&only_read, 1), true, write, context);
}

int json_write_path_formatted_to(JSONNODE* const* path, size_t count, json_writer write, void* context) {
    return path == nullptr ? 0 : qo_json::write_pieces({path, count}, true, write, context);
}

char* json_write(const JSONNODE* node) { return json_write_n(node, nullptr); }

char* json_write_formatted(const JSONNODE* node) { return json_write_formatted_n(node, nullptr); }

size_t json_written_length(const char* text, size_t length) {
    if (text == nullptr) return 0;
    const std::string_view bytes(text, length);
    size_t written = length;
    for (size_t at = qo_json::plain_prefix(bytes); at < length; at += 1 + qo_json::plain_prefix(bytes.substr(at + 1))) {
        char escape[JSON_LONGEST_ESCAPE];
        written += static_cast<size_t>(qo_json::put_escape(escape, bytes[at]) - escape) - 1;
    }
    return written;
}

size_t json_escape_n(const char* text, size_t length, char* buffer) {
    static_assert(qo_json::kBlockBytes <= JSON_ESCAPE_SPARE);
    if (text == nullptr || buffer == nullptr) return 0;
    return static_cast<size_t>(qo_json::put_escaped(buffer, {text, length}) - buffer);
}
