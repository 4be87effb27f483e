// Arbitrary bytes to both readers of the JSON library, and what they make of them to both writers: what the fast reader
// accepts, the plain one has to accept, and both report the same; a tree is written as the widespread writer does it.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <rapidjson/memorystream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

#include "json_fast_reader.h"
#include "json_plain_reader.h"
#include "qo_json.h"

namespace {

using qo_json::Decoded;
using qo_json::FastReader;

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

/// Notes all that a reader reports.
class Report : public qo_json::TextRules {
public:
    bool Null() { return note('n', {}); }
    bool Bool(bool value) { return note(value ? 't' : 'f', {}); }
    bool RawNumber(const char* literal, uint32_t length, bool copy) {
        return TextRules::RawNumber(literal, length, copy) && note('#', {literal, length});
    }
    bool String(const char* bytes, uint32_t length, bool copy) {
        return TextRules::String(bytes, length, copy) && note('"', {bytes, length});
    }
    bool Key(const char* bytes, uint32_t length, bool copy) {
        return TextRules::Key(bytes, length, copy) && note(':', {bytes, length});
    }
    bool StartObject() { return TextRules::StartObject() && note('{', {}); }
    bool StartArray() { return TextRules::StartArray() && note('[', {}); }
    bool EndObject(uint32_t count) { return TextRules::EndObject(count) && note('}', std::to_string(count)); }
    bool EndArray(uint32_t count) { return TextRules::EndArray(count) && note(']', std::to_string(count)); }

    const std::string& notes() const { return notes_; }

private:
    bool note(char kind, std::string_view text) {
        notes_ += kind;
        notes_ += std::to_string(text.size()) + ' ';
        notes_ += text;
        return true;
    }

    std::string notes_;
};

template <Decoded decoded>
void compare_readers(std::string_view text) {
    using Reader = FastReader<decoded, Report>;
    // Of exactly the size that it asks for, so that the sanitizer sees a byte beyond.
    const std::unique_ptr<char[]> space(new char[Reader::space_for(text.size())]);
    Report fast;
    if (!Reader(text, space.get(), fast).read()) return;
    Report plain;
    require(qo_json::read_plainly(text, plain), "the plain reader accepts what the fast one does");
    require(fast.notes() == plain.notes(), "both readers report the same");
}

/// Bounds the indentation of a line as this system has it.
struct BoundedOutput : rapidjson::StringBuffer {};

void PutN(BoundedOutput& output, char c, size_t count) {
    for (size_t i = 0; i < count && i < JSON_MAX_INDENT; ++i) output.Put(c);
}

template <typename Writer>
std::string written_by(std::string_view text) {
    rapidjson::MemoryStream input(text.data(), text.size());
    BoundedOutput output;
    Writer writer(output);
    if constexpr (requires { writer.SetIndent('\t', 1); }) writer.SetIndent('\t', 1);
    rapidjson::Reader reader;
    const auto result =
        reader.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag>(input, writer);
    require(!result.IsError(), "a valid text is valid for the widespread reader");
    return {output.GetString(), output.GetSize()};
}

std::string taken(char* text, size_t length) {
    const std::string bytes(text, length);
    json_free(text);
    return bytes;
}

/// The writer would write a number that was read as text as a string.
template <typename Base>
struct NumbersAsTheyStand : Base {
    using Base::Base;
    bool RawNumber(const char* literal, rapidjson::SizeType length, bool) {
        return this->RawValue(literal, length, rapidjson::kNumberType);
    }
};

void compare_writers(std::string_view text, const JSONNODE* tree) {
    using Compact = NumbersAsTheyStand<rapidjson::Writer<BoundedOutput>>;
    using Formatted = NumbersAsTheyStand<rapidjson::PrettyWriter<BoundedOutput>>;
    size_t length = 0;
    char* compact = json_write_n(tree, &length);
    require(taken(compact, length) == written_by<Compact>(text), "a compact text is as it always was");
    char* formatted = json_write_formatted_n(tree, &length);
    require(taken(formatted, length) == written_by<Formatted>(text), "a formatted text is as it always was");
}

struct DeleteDocument {
    void operator()(JSONDOCUMENT* document) const { json_document_delete(document); }
};

/// One document for all texts, as the service has it.
void compare_document(std::string_view text, const JSONNODE* tree) {
    static const std::unique_ptr<JSONDOCUMENT, DeleteDocument> document(json_document_new());
    const JSONNODE* read = json_document_parse_n(document.get(), text.data(), text.size());
    require((read != nullptr) == (tree != nullptr), "a document takes what is valid");
    if (tree != nullptr) require(json_equal(read, tree) == 1, "a document has the same tree");
    if (text.size() % 2 == 0) json_document_give_back(document.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    compare_readers<Decoded::kept>(text);
    compare_readers<Decoded::passing>(text);
    JSONNODE* tree = json_parse_n(text.data(), text.size());
    Report plain;
    require((tree != nullptr) == qo_json::read_plainly(text, plain), "valid is what the plain reader accepts");
    compare_document(text, tree);
    if (tree != nullptr) compare_writers(text, tree);
    json_delete(tree);
    return 0;
}
