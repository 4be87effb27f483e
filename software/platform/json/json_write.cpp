// From nodes to text.
#include <cstdlib>
#include <cstring>
#include <vector>

#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

#include "json_allocator.h"
#include "json_node.h"

namespace qo_json {
namespace {

/// The growing text that a writer puts its characters into; ends up in the caller's hands without another copy.
class TextOutput {
public:
    using Ch = char;

    TextOutput() = default;
    TextOutput(const TextOutput&) = delete;
    TextOutput& operator=(const TextOutput&) = delete;
    ~TextOutput() { std::free(bytes_); }

    void Put(char c) {
        if (size_ == capacity_) grow(size_ + 1);
        bytes_[size_++] = c;
    }

    void put_repeated(char c, size_t count) {
        if (capacity_ - size_ < count) grow(size_ + count);
        std::memset(bytes_ + size_, c, count);
        size_ += count;
    }

    void Flush() {}

    size_t size() const { return size_; }

    /// The text, NUL-terminated, for json_free.
    char* release() {
        Put('\0');
        void* fitting = std::realloc(bytes_, size_);
        char* text = fitting == nullptr ? bytes_ : static_cast<char*>(fitting);
        bytes_ = nullptr;
        return text;
    }

private:
    void grow(size_t wanted) {
        constexpr size_t kFirstCapacity = 256;
        size_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_ + capacity_ / 2;
        if (capacity < wanted) capacity = wanted;
        bytes_ = static_cast<char*>(reallocate(bytes_, capacity));
        capacity_ = capacity;
    }

    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

/// What the formatted writer calls for the indentation of a line. Bounded, or the text of a deep tree would grow with
/// the square of its depth.
void PutN(TextOutput& output, char c, size_t count) {
    output.put_repeated(c, count < JSON_MAX_INDENT ? count : JSON_MAX_INDENT);
}

/// Writes a scalar, or opens a container.
template <typename Writer>
void write_start(Writer& writer, const JSONNODE* node) {
    const std::string_view text = node->text.view();
    switch (node->type) {
        case JSON_STRING:
            writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
            break;
        case JSON_NUMBER:
            writer.RawValue(text.data(), text.size(), rapidjson::kNumberType);
            break;
        case JSON_BOOL:
            writer.Bool(node->boolean);
            break;
        case JSON_ARRAY:
            writer.StartArray();
            break;
        case JSON_NODE:
            writer.StartObject();
            break;
        default:
            writer.Null();
            break;
    }
}

template <typename Writer>
void write_tree(Writer& writer, const JSONNODE* root) {
    struct Level {
        const JSONNODE* container;
        size_t next;
    };
    std::vector<Level> open;
    const auto start = [&](const JSONNODE* node) {
        write_start(writer, node);
        if (is_container(node)) open.push_back({node, 0});
    };

    start(root);
    while (!open.empty()) {
        auto& [container, next] = open.back();
        const bool is_object = container->type == JSON_NODE;
        if (next < child_count(container)) {
            const JSONNODE* child = container->children->items[next++];
            const std::string_view name = child->name.view();
            if (is_object) writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
            start(child);
            continue;
        }
        open.pop_back();
        if (is_object)
            writer.EndObject();
        else
            writer.EndArray();
    }
}

template <typename Writer>
char* write_text(Writer& writer, TextOutput& output, const JSONNODE* node, size_t* length) {
    if (node != nullptr) write_tree(writer, node);
    if (length != nullptr) *length = output.size();
    return node == nullptr ? nullptr : output.release();
}

/// Hands the text on in pieces.
class PieceOutput {
public:
    using Ch = char;

    PieceOutput(json_writer write, void* context) : write_(write), context_(context), piece_(kPiece) {}

    void Put(char c) {
        if (size_ == kPiece) hand_on();
        piece_[size_++] = c;
    }
    void put_repeated(char c, size_t count) {
        for (; count > 0; --count) Put(c);
    }
    void Flush() {}

    /// @return whether all was taken.
    bool finish() {
        hand_on();
        return taken_;
    }

private:
    static constexpr size_t kPiece = 65536;  // bytes

    void hand_on() {
        taken_ = taken_ && (size_ == 0 || write_(piece_.data(), size_, context_) != 0);
        size_ = 0;
    }

    json_writer write_;
    void* context_;
    std::vector<char> piece_;
    size_t size_ = 0;
    bool taken_ = true;
};

void PutN(PieceOutput& output, char c, size_t count) {
    output.put_repeated(c, count < JSON_MAX_INDENT ? count : JSON_MAX_INDENT);
}

template <typename Output>
using CompactWriter = rapidjson::Writer<Output, rapidjson::UTF8<>, rapidjson::UTF8<>, Allocator>;

template <typename Output>
using FormattedWriter = rapidjson::PrettyWriter<Output, rapidjson::UTF8<>, rapidjson::UTF8<>, Allocator>;

}  // namespace
}  // namespace qo_json

char* json_write_n(const JSONNODE* node, size_t* length) {
    qo_json::TextOutput output;
    qo_json::CompactWriter<qo_json::TextOutput> writer(output);
    return qo_json::write_text(writer, output, node, length);
}

char* json_write_formatted_n(const JSONNODE* node, size_t* length) {
    qo_json::TextOutput output;
    qo_json::FormattedWriter<qo_json::TextOutput> writer(output);
    writer.SetIndent('\t', 1);
    return qo_json::write_text(writer, output, node, length);
}

int json_write_formatted_to(const JSONNODE* node, json_writer write, void* context) {
    if (node == nullptr || write == nullptr) return 0;
    qo_json::PieceOutput output(write, context);
    qo_json::FormattedWriter<qo_json::PieceOutput> writer(output);
    writer.SetIndent('\t', 1);
    qo_json::write_tree(writer, node);
    return output.finish() ? 1 : 0;
}

char* json_write(const JSONNODE* node) { return json_write_n(node, nullptr); }

char* json_write_formatted(const JSONNODE* node) { return json_write_formatted_n(node, nullptr); }
