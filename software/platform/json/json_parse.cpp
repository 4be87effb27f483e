// From text to nodes.
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "json_allocator.h"
#include "json_node.h"
#include "json_number.h"

namespace {

using qo_json::NodePtr;
using qo_json::Text;
using rapidjson::SizeType;

/// What the reader asks its handlers for and never calls, as numbers are passed on as they stand.
struct NoNumbers {
    bool Int(int) { return false; }
    bool Uint(unsigned) { return false; }
    bool Int64(int64_t) { return false; }
    bool Uint64(uint64_t) { return false; }
    bool Double(double) { return false; }
};

/// What the reader lets pass and this library does not. The reader reports every value of the text to it; a false
/// answer ends the parse.
class TextRules : public NoNumbers {
public:
    bool Null() { return true; }
    bool Bool(bool) { return true; }
    bool RawNumber(const char* literal, SizeType length, bool) {
        return qo_json::is_in_double_range({literal, length});
    }
    bool String(const char* bytes, SizeType length, bool) { return has_no_surrogate({bytes, length}); }
    bool Key(const char* bytes, SizeType length, bool) { return has_no_surrogate({bytes, length}); }
    bool StartObject() { return enter(); }
    bool StartArray() { return enter(); }
    bool EndObject(SizeType) { return leave(); }
    bool EndArray(SizeType) { return leave(); }

private:
    /// The reader encodes the escape of a lone low surrogate like a character.
    static bool has_no_surrogate(std::string_view bytes) {
        constexpr char kLead = '\xED';
        constexpr unsigned char kFirstSurrogate = 0xA0;
        for (size_t at = bytes.find(kLead); at != std::string_view::npos; at = bytes.find(kLead, at + 1))
            if (static_cast<unsigned char>(bytes[at + 1]) >= kFirstSurrogate) return false;
        return true;
    }

    bool enter() { return ++depth_ <= JSON_MAX_PARSE_DEPTH; }

    bool leave() {
        --depth_;
        return true;
    }

    int depth_ = 0;
};

/// Builds the nodes. Whatever is not yet in a parent stands on one stack, a container below its children, so that
/// each container gets a list of exactly the right size when it ends and a rejected text leaves nothing behind.
class TreeBuilder : public NoNumbers {
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
        pending_.back()->text = Text({literal, length});
        return true;
    }

    bool String(const char* bytes, SizeType length, bool copy) {
        if (!rules_.String(bytes, length, copy)) return false;
        add(JSON_STRING);
        pending_.back()->text = Text({bytes, length});
        return true;
    }

    bool Key(const char* bytes, SizeType length, bool copy) {
        if (!rules_.Key(bytes, length, copy)) return false;
        next_name_ = Text({bytes, length});
        return true;
    }

    bool StartObject() { return rules_.StartObject() && add(JSON_NODE); }
    bool StartArray() { return rules_.StartArray() && add(JSON_ARRAY); }
    bool EndObject(SizeType count) { return rules_.EndObject(count) && close(count); }
    bool EndArray(SizeType count) { return rules_.EndArray(count) && close(count); }

private:
    bool add(char type) {
        pending_.push_back(NodePtr(new JSONNODE(type)));
        pending_.back()->name = std::exchange(next_name_, Text());
        return true;
    }

    bool close(size_t count) {
        if (count == 0) return true;
        const auto first = pending_.end() - static_cast<std::ptrdiff_t>(count);
        JSONNODE* container = (first - 1)->get();
        auto& children = qo_json::reserve_children(container, count);
        for (auto child = first; child != pending_.end(); ++child) {
            (*child)->parent = container;
            children.push_back(child->release());
        }
        pending_.erase(first, pending_.end());
        return true;
    }

    TextRules rules_;
    Text next_name_;
    std::vector<NodePtr> pending_;
};

/// A text that comes piece by piece, as the reader wants to see it: the end looks like a NUL.
class PieceStream {
public:
    using Ch = char;

    PieceStream(json_reader read, void* context) : read_(read), context_(context), piece_(kPiece) { refill(); }

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
    static constexpr size_t kPiece = 65536;  // bytes

    void refill() {
        passed_ += length_;
        length_ = read_(piece_.data(), piece_.size(), context_);
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

/// Whether the stream has one JSON text that `handler` accepts. What stands behind it, if it is not white space, begins
/// with a NUL, which looks to the reader like the end.
template <typename Stream, typename Handler>
bool accepts(Stream& stream, Handler& handler) {
    constexpr unsigned kFlags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
    rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, qo_json::Allocator> reader;
    return !reader.template Parse<kFlags>(stream, handler).IsError();
}

/// Whether all of `text` is one JSON text that `handler` accepts.
template <typename Handler>
bool read(std::string_view text, Handler& handler) {
    if (text.size() > qo_json::kMaxTextLength) return false;
    rapidjson::MemoryStream stream(text.data(), text.size());
    return accepts(stream, handler) && stream.Tell() == text.size();
}

}  // namespace

JSONNODE* json_parse_n(const char* text, size_t length) {
    TreeBuilder builder;
    if (text == nullptr || !read({text, length}, builder)) return nullptr;
    return builder.take_root().release();
}

JSONNODE* json_parse_from(json_reader reader, void* context) {
    if (reader == nullptr) return nullptr;
    TreeBuilder builder;
    PieceStream stream(reader, context);
    return accepts(stream, builder) && stream.at_end() ? builder.take_root().release() : nullptr;
}

JSONNODE* json_parse(const char* text) { return text == nullptr ? nullptr : json_parse_n(text, std::strlen(text)); }

int json_is_valid_n(const char* text, size_t length) {
    TextRules rules;
    return text != nullptr && read({text, length}, rules) ? 1 : 0;
}

int json_is_valid(const char* text) { return text == nullptr ? 0 : json_is_valid_n(text, std::strlen(text)); }
