// From text to nodes.
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "json_fast_reader.h"
#include "json_node.h"
#include "json_plain_reader.h"

namespace {

using qo_json::NodePtr;
using qo_json::TextRules;
using rapidjson::SizeType;

/// Builds the nodes. Whatever is not yet in a parent stands on one stack, a container below its children, so that
/// each container gets a list of exactly the right size when it ends and a rejected text leaves nothing behind.
class TreeBuilder : public qo_json::NoNumbers {
public:
    /// The tree of a text that was accepted.
    NodePtr take_root() { return std::move(pending_.front()); }

    bool Null() { return add(JSON_NULL); }

    bool Bool(bool value) {
        add(JSON_BOOL);
        pending_.back()->boolean = value;
        return true;
    }

    bool RawNumber(const char* literal, SizeType length, bool copy) {
        if (!rules_.RawNumber(literal, length, copy)) return false;
        add(JSON_NUMBER);
        pending_.back()->text.assign({literal, length});
        return true;
    }

    bool String(const char* bytes, SizeType length, bool copy) {
        if (!rules_.String(bytes, length, copy)) return false;
        add(JSON_STRING);
        pending_.back()->text.assign({bytes, length});
        return true;
    }

    bool Key(const char* bytes, SizeType length, bool copy) {
        if (!rules_.Key(bytes, length, copy)) return false;
        pending_.push_back(NodePtr(new JSONNODE));
        pending_.back()->name.assign({bytes, length});
        is_named_ = true;
        return true;
    }

    bool StartObject() { return rules_.StartObject() && add(JSON_NODE); }
    bool StartArray() { return rules_.StartArray() && add(JSON_ARRAY); }
    bool EndObject(SizeType count) { return rules_.EndObject(count) && close(count); }
    bool EndArray(SizeType count) { return rules_.EndArray(count) && close(count); }

private:
    bool add(char type) {
        if (!std::exchange(is_named_, false)) pending_.push_back(NodePtr(new JSONNODE));
        pending_.back()->type = type;
        return true;
    }

    bool close(size_t count) {
        if (count == 0) return true;
        const auto first = pending_.end() - static_cast<std::ptrdiff_t>(count);
        JSONNODE* container = (first - 1)->get();
        auto& children = qo_json::reserve_children(container, count);
        for (auto child = first; child != pending_.end(); ++child) {
            (*child)->parent = container;
            qo_json::append_child(children, child->release());
        }
        pending_.erase(first, pending_.end());
        return true;
    }

    TextRules rules_;
    bool is_named_ = false;  // the last one, whose value is to come
    std::vector<NodePtr> pending_;
};

/// A text that comes piece by piece, as the reader wants to see it: the end looks like a NUL.
class PieceStream {
public:
    using Ch = char;

    /// @param first what was read already
    PieceStream(json_reader read, void* context, std::vector<char> first)
        : read_(read), context_(context), piece_(std::move(first)) {
        show(piece_.size());
    }

    Ch Peek() const { return *current_; }
    Ch Take() {
        const Ch taken = *current_;
        if (!at_end_ && ++current_ == end_) refill();
        return taken;
    }
    size_t Tell() const { return passed_ + static_cast<size_t>(current_ - piece_.data()); }
    /// False also where the text has a NUL, and when it is too long.
    bool at_end() const { return at_end_ && !too_long_; }

    // Never called by a reader that copies what it reads.
    Ch* PutBegin() { return nullptr; }
    void Put(Ch) {}
    void Flush() {}
    size_t PutEnd(Ch*) { return 0; }

private:
    void refill() {
        passed_ += length_;
        show(read_(piece_.data(), piece_.size(), context_));
    }

    /// The stream goes on with the first `length` bytes of the piece.
    void show(size_t length) {
        length_ = length;
        too_long_ = length_ > qo_json::kMaxTextLength - passed_;
        at_end_ = length_ == 0 || too_long_;
        if (at_end_) {
            length_ = 0;
            piece_.front() = '\0';
        }
        current_ = piece_.data();
        end_ = current_ + length_;
    }

    json_reader read_;
    void* context_;
    std::vector<char> piece_;
    const char* current_ = nullptr;
    const char* end_ = nullptr;
    size_t length_ = 0;  // of the piece
    size_t passed_ = 0;  // bytes before the piece
    bool at_end_ = false;
    bool too_long_ = false;
};

/// Whether all of `text` is one JSON text of those that the fast reader knows.
template <typename Handler>
bool read_fast(std::string_view text, Handler& handler) {
    using Reader = qo_json::FastReader<qo_json::Decoded::passing, Handler>;
    const auto space = qo_json::new_space(Reader::space_for(text.size()));
    return Reader(text, space.get(), handler).read();
}

/// Whether all of `text` is one JSON text that a handler of this type accepts, which is then in `handler`.
template <typename Handler>
bool read(std::string_view text, Handler& handler) {
    if (text.size() > qo_json::kMaxTextLength) return false;
    if (read_fast(text, handler)) return true;
    handler = Handler();
    return qo_json::read_plainly(text, handler);
}

/// The beginning of a text that comes piece by piece: all of it, when it is of a usual length.
struct Beginning {
    std::vector<char> bytes;
    bool is_whole;
};

Beginning read_beginning(json_reader reader, void* context) {
    constexpr size_t kPiece = 65536;              // bytes
    constexpr size_t kUsualLength = kPiece * 32;  // beyond, a text is not held in memory
    Beginning beginning{{}, false};
    for (size_t length = 0; length < kUsualLength && !beginning.is_whole;) {
        beginning.bytes.resize(length + kPiece);
        const size_t count = reader(beginning.bytes.data() + length, kPiece, context);
        length += count;
        beginning.bytes.resize(length);
        beginning.is_whole = count == 0;
    }
    return beginning;
}

}  // namespace

JSONNODE* json_parse_n(const char* text, size_t length) {
    TreeBuilder builder;
    if (text == nullptr || !read({text, length}, builder)) return nullptr;
    return builder.take_root().release();
}

JSONNODE* json_parse_from(json_reader reader, void* context) {
    if (reader == nullptr) return nullptr;
    Beginning beginning = read_beginning(reader, context);
    if (beginning.is_whole) return json_parse_n(beginning.bytes.data(), beginning.bytes.size());
    TreeBuilder builder;
    PieceStream stream(reader, context, std::move(beginning.bytes));
    return qo_json::accepts(stream, builder) && stream.at_end() ? builder.take_root().release() : nullptr;
}

JSONNODE* json_parse(const char* text) { return text == nullptr ? nullptr : json_parse_n(text, std::strlen(text)); }

int json_is_valid_n(const char* text, size_t length) {
    TextRules rules;
    return text != nullptr && read({text, length}, rules) ? 1 : 0;
}

int json_is_valid(const char* text) { return text == nullptr ? 0 : json_is_valid_n(text, std::strlen(text)); }
