// From nodes to text.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "json_allocator.h"
#include "json_node.h"
#include "json_scan.h"

namespace qo_json {
namespace {

constexpr size_t kLongestEscape = 6;  // "\u001F"

/// The growing text that a writer puts its characters into; ends up in the caller's hands without another copy.
class TextOutput {
public:
    TextOutput() = default;
    TextOutput(const TextOutput&) = delete;
    TextOutput& operator=(const TextOutput&) = delete;
    ~TextOutput() { std::free(bytes_); }

    /// Room for so many bytes, which advance() then makes part of the text.
    char* room_for(size_t count) {
        if (capacity_ - size_ < count) grow(size_ + count);
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

/// Hands the text on in pieces.
class PieceOutput {
public:
    PieceOutput(json_writer write, void* context) : write_(write), context_(context) {}

    /// As TextOutput's, for at most a piece.
    char* room_for(size_t count) {
        if (piece_.size() - size_ < count) hand_on();
        return piece_.data() + size_;
    }
    void advance(size_t count) { size_ += count; }

    /// @return whether all was taken.
    bool finish() {
        hand_on();
        return taken_;
    }

private:
    static constexpr size_t kPiece = 16384;  // bytes

    void hand_on() {
        taken_ = taken_ && (size_ == 0 || write_(piece_.data(), size_, context_) != 0);
        size_ = 0;
    }

    json_writer write_;
    void* context_;
    std::array<char, kPiece> piece_;
    size_t size_ = 0;
    bool taken_ = true;
};

char* put_escape(char* out, char c) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    // By control character: its letter, or 'u' for its number.
    static constexpr char kLetters[] = "uuuuuuuubtnufruuuuuuuuuuuuuuuuuu";
    const auto code = static_cast<unsigned char>(c);
    *out++ = '\\';
    *out = code < kFirstPrintable ? kLetters[code] : c;
    if (*out++ != 'u') return out;
    out = std::copy_n("00", 2, out);
    *out++ = kHexDigits[code >> 4];
    *out++ = kHexDigits[code & 0xF];
    return out;
}

/// Whole blocks are copied as they are looked through; what was copied too much of one is overwritten.
char* put_escaped(char* out, std::string_view bytes) {
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    while (at != end) {
        const auto left = static_cast<size_t>(end - at);
        const Block block = left < kBlockBytes ? Block(at, left) : Block(at);
        block.store(out);
        const Block::Marks escaped = block.escaped();
        const size_t plain = escaped == 0 ? kBlockBytes : Block::first(escaped);
        at += plain;
        out += plain;
        if (plain < std::min(left, kBlockBytes)) out = put_escape(out, *at++);
    }
    return out;
}

/// Puts the parts of a JSON text into an output; with or without the white space that makes it readable. What belongs
/// together is put at once: an output looks for room each time.
template <typename Output>
class PartWriter {
public:
    PartWriter(Output& output, bool formatted) : output_(output), formatted_(formatted) {}

    void put(char c) {
        *output_.room_for(1) = c;
        output_.advance(1);
    }

    /// What stands before a child: a comma behind the one before it, and the line break.
    void begin_child(bool is_first, size_t level) {
        char* const room = output_.room_for(1 + kLineBreak);
        char* out = room;
        if (!is_first) *out++ = ',';
        output_.advance(static_cast<size_t>(put_line_break(out, level) - room));
    }

    /// What stands behind the last child.
    void end_children(size_t level, char bracket) {
        char* const room = output_.room_for(kLineBreak + 1);
        char* out = put_line_break(room, level);
        *out++ = bracket;
        output_.advance(static_cast<size_t>(out - room));
    }

    void put_name(std::string_view name) {
        put_quoted(name);
        char* const room = output_.room_for(2);
        room[0] = ':';
        room[1] = ' ';
        output_.advance(formatted_ ? 2 : 1);
    }

    void put_scalar(const JSONNODE* node) {
        if (node->type == JSON_STRING) return put_quoted(node->text.view());
        for (std::string_view text = value_text(node); !text.empty();) {
            const std::string_view block = text.substr(0, kBlock);
            block.copy(output_.room_for(block.size()), block.size());
            output_.advance(block.size());
            text.remove_prefix(block.size());
        }
    }

private:
    static constexpr size_t kBlock = 1024;  // bytes
    static constexpr size_t kLineBreak = 1 + JSON_MAX_INDENT;

    void put_quoted(std::string_view text) {
        constexpr size_t kQuotes = 2;
        for (bool is_first = true, is_last = false; !is_last; is_first = false) {
            const std::string_view block = text.substr(0, kBlock);
            text.remove_prefix(block.size());
            is_last = text.empty();
            char* const room = output_.room_for(kQuotes + block.size() * kLongestEscape + kBlockBytes);
            char* out = room;
            if (is_first) *out++ = '"';
            out = put_escaped(out, block);
            if (is_last) *out++ = '"';
            output_.advance(static_cast<size_t>(out - room));
        }
    }

    /// Bounded, or the text of a deep tree would grow with the square of its depth.
    char* put_line_break(char* out, size_t level) const {
        if (!formatted_) return out;
        *out++ = '\n';
        std::memset(out, '\t', JSON_MAX_INDENT);  // cheaper than to look how many; what is too much is overwritten
        return out + std::min<size_t>(level, JSON_MAX_INDENT);
    }

    Output& output_;
    const bool formatted_;
};

struct Brackets {
    char open;
    char close;
};

constexpr Brackets brackets_of(const JSONNODE* container) {
    return container->type == JSON_NODE ? Brackets{'{', '}'} : Brackets{'[', ']'};
}

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
        if (!is_container(node)) return writer.put_scalar(node);
        writer.put(brackets_of(node).open);
        if (const auto children = children_of(node); children.empty())
            writer.put(brackets_of(node).close);
        else
            open.push_back({node, children, 0});
    };

    start(path.front());
    while (!open.empty()) {
        auto& [container, children, next] = open.back();
        if (next == children.size()) {
            writer.end_children(open.size() - 1, brackets_of(container).close);
            open.pop_back();
            continue;
        }
        writer.begin_child(next == 0, open.size());
        const JSONNODE* child = children[next++];
        if (container->type == JSON_NODE) writer.put_name(child->name.view());
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
        char escape[qo_json::kLongestEscape];
        written += static_cast<size_t>(qo_json::put_escape(escape, bytes[at]) - escape) - 1;
    }
    return written;
}
