// The JSON library says only whether a text is valid; this reads it once more for the place.
#include "qo_ctl_syntax.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>

#include "qo_json.h"

namespace {

/// Ends the reading where it gets too deep.
class Depth : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Depth> {
public:
    bool StartObject() { return open(); }
    bool EndObject(rapidjson::SizeType) { return close(); }
    bool StartArray() { return open(); }
    bool EndArray(rapidjson::SizeType) { return close(); }

private:
    bool open() { return ++depth_ <= JSON_MAX_PARSE_DEPTH; }
    bool close() {
        --depth_;
        return true;
    }

    int depth_ = 0;
};

std::string place(std::string_view text, size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const size_t column = before.size() - (before.find_last_of('\n') + 1);  // npos + 1 is 0
    return "line " + std::to_string(lines + 1) + ", column " + std::to_string(column + 1) + ": ";
}

}  // namespace

std::string qo_ctl_syntax_fault(std::string_view text) {
    if (json_is_valid_n(text.data(), text.size()) != 0) return "";
    // Without recursion: a hostile text is as deep as it likes.
    constexpr unsigned kFlags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
    rapidjson::Reader reader;
    rapidjson::MemoryStream stream(text.data(), text.size());
    Depth depth;
    const rapidjson::ParseResult result = reader.Parse<kFlags>(stream, depth);
    if (!result.IsError()) return "for a reason that is not known";
    const bool too_deep = result.Code() == rapidjson::kParseErrorTermination;
    return place(text, std::min(result.Offset(), text.size())) +
           (too_deep ? "nested deeper than " + std::to_string(JSON_MAX_PARSE_DEPTH) + " levels"
                     : rapidjson::GetParseError_En(result.Code()));
}
