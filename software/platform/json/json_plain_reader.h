/// Reads any JSON text, and judges what is one.
#ifndef QO_JSON_PLAIN_READER_H
#define QO_JSON_PLAIN_READER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "json_allocator.h"
#include "json_number.h"
#include "qo_json.h"

namespace qo_json {

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
    bool RawNumber(const char* literal, rapidjson::SizeType length, bool) {
        return is_in_double_range({literal, length});
    }
    bool String(const char* bytes, rapidjson::SizeType length, bool) { return has_no_surrogate({bytes, length}); }
    bool Key(const char* bytes, rapidjson::SizeType length, bool) { return has_no_surrogate({bytes, length}); }
    bool StartObject() { return enter(); }
    bool StartArray() { return enter(); }
    bool EndObject(rapidjson::SizeType) { return leave(); }
    bool EndArray(rapidjson::SizeType) { return leave(); }

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

/// Whether the stream has one JSON text that `handler` accepts. What stands behind it, if it is not white space, begins
/// with a NUL, which looks to the reader like the end.
template <typename Stream, typename Handler>
bool accepts(Stream& stream, Handler& handler) {
    constexpr unsigned kFlags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
    rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, Allocator> reader;
    return !reader.template Parse<kFlags>(stream, handler).IsError();
}

/// Whether all of `text` is one JSON text that `handler` accepts.
template <typename Handler>
bool read_plainly(std::string_view text, Handler& handler) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    return accepts(stream, handler) && stream.Tell() == text.size();
}

}  // namespace qo_json

#endif
