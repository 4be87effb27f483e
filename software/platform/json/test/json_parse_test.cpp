// Which texts are JSON, and what becomes of them.
#include <gtest/gtest.h>

#include "json_test_support.h"

using namespace std::string_literals;

namespace {

std::string nested_arrays(int depth) { return nested(depth, "[", "", "]"); }

/// Gives a text in pieces of a size, and counts how often it was asked.
struct Pieces {
    std::string text;
    size_t size;
    size_t given = 0;
    int asked = 0;

    static size_t read(char* buffer, size_t size, void* context) {
        auto& pieces = *static_cast<Pieces*>(context);
        ++pieces.asked;
        const size_t length = pieces.text.copy(buffer, std::min(size, pieces.size), pieces.given);
        pieces.given += length;
        return length;
    }
};

/// By the plain reader, to which every text goes that is longer than usual: white space makes it so.
Json parse_plainly(const std::string& text) {
    constexpr size_t kLongerThanUsual = (2 << 20) + 1;
    Pieces pieces{text + std::string(kLongerThanUsual, ' '), kLongerThanUsual};
    return Json(json_parse_from(Pieces::read, &pieces));
}

/// A text that json_parse_n and json_is_valid_n refuse, and so do a document and the plain reader.
void expect_invalid(const std::string& text) {
    EXPECT_EQ(parse(text), nullptr) << text.substr(0, 80);
    EXPECT_EQ(QoJsonDocument().read(text).get(), nullptr) << text.substr(0, 80);
    EXPECT_EQ(parse_plainly(text), nullptr) << text.substr(0, 80);
    EXPECT_EQ(json_is_valid_n(text.data(), text.size()), 0) << text.substr(0, 80);
}

/// A text that is accepted and written back as `written`.
void expect_valid(const std::string& text, const std::string& written) {
    EXPECT_EQ(compact(parse(text)), written);
    EXPECT_EQ(compact(QoJsonDocument().read(text).get()), written);
    EXPECT_EQ(compact(parse_plainly(text)), written);
    EXPECT_EQ(json_is_valid_n(text.data(), text.size()), 1) << text.substr(0, 80);
}

void expect_unchanged(const std::string& text) { expect_valid(text, text); }

}  // namespace

TEST(JsonParse, EveryTypeIsRecognised) {
    const Json tree = parse(R"([null,"text",1,true,[],{}])");
    ASSERT_EQ(json_size(tree.get()), 6U);
    EXPECT_EQ(json_type(json_at(tree.get(), 0)), JSON_NULL);
    EXPECT_EQ(json_type(json_at(tree.get(), 1)), JSON_STRING);
    EXPECT_EQ(json_type(json_at(tree.get(), 2)), JSON_NUMBER);
    EXPECT_EQ(json_type(json_at(tree.get(), 3)), JSON_BOOL);
    EXPECT_EQ(json_type(json_at(tree.get(), 4)), JSON_ARRAY);
    EXPECT_EQ(json_type(json_at(tree.get(), 5)), JSON_NODE);
}

TEST(JsonParse, TypesHaveTheirNumbers) {
    EXPECT_EQ(JSON_NULL, 0);
    EXPECT_EQ(JSON_STRING, 1);
    EXPECT_EQ(JSON_NUMBER, 2);
    EXPECT_EQ(JSON_BOOL, 3);
    EXPECT_EQ(JSON_ARRAY, 4);
    EXPECT_EQ(JSON_NODE, 5);
}

TEST(JsonParse, AScalarIsAValidText) {
    for (const char* text : {"null", "true", "false", "0", "-1.5e3", "\"\"", "\"x\""}) expect_unchanged(text);
}

TEST(JsonParse, WhiteSpaceAroundEverythingIsAccepted) {
    expect_valid(" \t\r\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } } \n", R"({"a":[1,2],"b":{}})");
}

TEST(JsonParse, MembersKeepTheirOrderAndDuplicateNames) { expect_unchanged(R"({"z":1,"a":2,"z":3,"":4,"a":5})"); }

TEST(JsonParse, NumbersKeepTheirLiteral) {
    for (const char* text : {"0", "-0", "35.0", "-0.0", "1e3", "1E3", "1e+3", "1E-3", "-12.50e-07", "0e5", "0.10",
                             "123456789012345678901234567890", "-9223372036854775809", "1.7976931348623157e308",
                             "5e-324", "1e-99999999999999999999"})
        expect_unchanged(text);
}

TEST(JsonParse, AFractionOfTenThousandDigitsIsKept) { expect_unchanged("0." + std::string(10000, '7')); }

TEST(JsonParse, AnExponentOfTenThousandDigitsIsKept) { expect_unchanged("1e-" + std::string(10000, '9')); }

TEST(JsonParse, NumbersBeyondTheRangeOfADoubleAreInvalid) {
    for (const char* text :
         {"1e309", "-1e309", "10e308", "1.8e308", "123456789012345678e300", "1e99999999999999999999"})
        expect_invalid(text);
    expect_invalid(std::string(10000, '7'));
}

TEST(JsonParse, NumbersWhosePartsAreBeyondTheRangeAreInvalid) {
    expect_invalid("0e400");
    const std::string digits(400, '1');
    expect_invalid(digits + "e-300");
}

TEST(JsonParse, MalformedNumbersAreInvalid) {
    for (const char* text : {"01", "-", "+1", ".5", "1.", "1.e3", "1e", "1e+", "--1", "0x10", "1_000", "NaN",
                             "Infinity", "-Infinity", "1,2", "00"})
        expect_invalid(text);
}

TEST(JsonParse, BadSyntaxIsInvalid) {
    for (const char* text : {"",
                             " ",
                             "{",
                             "}",
                             "[",
                             "]",
                             "[1",
                             "[1,]",
                             "[,1]",
                             "[1 2]",
                             "{\"a\"}",
                             "{\"a\":}",
                             "{\"a\":1,}",
                             "{,}",
                             "{a:1}",
                             "{'a':1}",
                             "{\"a\":1 \"b\":2}",
                             "{\"a\" 1}",
                             "{1:2}",
                             "[1}",
                             "{\"a\":1]",
                             "nul",
                             "nulll",
                             "True",
                             "tru",
                             "\"",
                             "\"a",
                             "\"\\\"",
                             "// comment\n1",
                             "/* */ 1",
                             "1 // comment",
                             "[1]]",
                             "{}{}",
                             "[] 1",
                             "\"a\" \"b\"",
                             "\xEF\xBB\xBF{}"})
        expect_invalid(text);
}

TEST(JsonParse, EveryEscapeIsDecoded) {
    const Json text = parse(R"("\"\\\/\b\f\n\r\t\u0041\u00e9\u20AC")");
    EXPECT_EQ(text_of(text.get()), "\"\\/\b\f\n\r\tA\xC3\xA9\xE2\x82\xAC");
}

TEST(JsonParse, BadEscapesAreInvalid) {
    for (const char* text : {R"("\a")", R"("\x41")", R"("\u")", R"("\u12")", R"("\u12G4")", R"("\U0041")", R"("\")"})
        expect_invalid(text);
}

TEST(JsonParse, ControlCharactersInAStringAreInvalid) {
    for (char c = 0; c < 0x20; ++c) expect_invalid("\""s + c + "\"");
    expect_unchanged("\"\x7F\"");
}

TEST(JsonParse, ASurrogatePairIsOneCharacter) {
    EXPECT_EQ(text_of(parse(R"("\uD83D\uDE00")").get()), "\xF0\x9F\x98\x80");
    EXPECT_EQ(text_of(parse(R"("\uDBFF\uDFFF")").get()), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(text_of(parse(R"("\uD800\uDC00")").get()), "\xF0\x90\x80\x80");
}

TEST(JsonParse, LoneSurrogatesAreInvalid) {
    for (const std::string escape : {R"(\uD800)", R"(\uDBFF)", R"(\uDC00)", R"(\uDFFF)", R"(\uDC00\uD800)",
                                     R"(\uD800\uD800)", R"(\uD800x)", R"(\uD800\n)", R"(x\uDEADx)"}) {
        expect_invalid("\"" + escape + "\"");
        expect_invalid("{\"" + escape + "\":1}");
    }
}

TEST(JsonParse, CharactersNextToTheSurrogatesAreValid) {
    EXPECT_EQ(text_of(parse(R"("\uD7FF\uE000")").get()), "\xED\x9F\xBF\xEE\x80\x80");
    expect_unchanged("\"\xED\x9F\xBF\xED\x95\x9C\"");
}

TEST(JsonParse, InvalidUtf8IsInvalid) {
    for (const char* bytes : {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x80\x80", "\xE2\x82",
                              "\xE2(\xA1", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x80\x80\x80", "\xF0\x9F\x98",
                              "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFE", "\xFF", "a\xFF"}) {
        expect_invalid("\""s + bytes + "\"");
        expect_invalid("{\""s + bytes + "\":1}");
        expect_invalid(bytes);
    }
}

TEST(JsonParse, ANulByteInsideTheTextIsInvalid) {
    for (const std::string& text : {"\0"s, "1\0"s, "1\0 2"s, "{}\0"s, "[1,\0]"s, "\"a\0b\""s, "\0 1"s, "[1]\0\0"s})
        expect_invalid(text);
}

TEST(JsonParse, AnEscapedNulIsKept) {
    const Json tree = parse(R"({"a\u0000b":"c\u0000d"})");
    ASSERT_EQ(json_size(tree.get()), 1U);
    EXPECT_EQ(name_of(json_at(tree.get(), 0)), "a\0b"s);
    EXPECT_EQ(text_of(json_at(tree.get(), 0)), "c\0d"s);
    EXPECT_EQ(compact(tree), R"({"a\u0000b":"c\u0000d"})");
}

TEST(JsonParse, NestingUpToTheLimitIsAccepted) {
    expect_unchanged(nested_arrays(JSON_MAX_PARSE_DEPTH));
    expect_unchanged(nested(JSON_MAX_PARSE_DEPTH, R"({"a":)", "0", "}"));
}

TEST(JsonParse, NestingBeyondTheLimitIsInvalid) {
    expect_invalid(nested_arrays(JSON_MAX_PARSE_DEPTH + 1));
    expect_invalid("[" + nested_arrays(JSON_MAX_PARSE_DEPTH) + "]");
    expect_invalid(R"({"a":)" + nested_arrays(JSON_MAX_PARSE_DEPTH) + "}");
}

TEST(JsonParse, TheLimitCountsLevelsNotContainers) {
    std::string many = "[";
    for (int i = 0; i < 2 * JSON_MAX_PARSE_DEPTH; ++i) many += "[],{},";
    expect_unchanged(many + "0]");
}

TEST(JsonParse, HundredAndThirtyThousandBracketsAreRefused) {
    expect_invalid(std::string(130000, '['));
    expect_invalid(nested_arrays(130000));
    expect_invalid(nested(50000, R"({"a":)", "", ""));
}

TEST(JsonParse, EveryPrefixOfATextIsInvalid) {
    const std::string text = R"({"a":[1,-2.5e3,"x\u00e9\n",true,false,null,{"b":{}}],"c":""})";
    expect_valid(text, "{\"a\":[1,-2.5e3,\"x\xC3\xA9\\n\",true,false,null,{\"b\":{}}],\"c\":\"\"}");
    for (size_t length = 0; length < text.size(); ++length) expect_invalid(text.substr(0, length));
}

TEST(JsonParse, AMessageFullOfEmptyArraysIsParsed) {
    std::string text = "[[]";
    while (text.size() < 262140) text += ",[]";
    const Json tree = parse(text + "]");
    EXPECT_EQ(json_size(tree.get()), (text.size() - 3) / 3 + 1);
}

TEST(JsonParse, ATextStopsAtItsNul) {
    const Json tree(json_parse("[1]"));
    EXPECT_EQ(compact(tree), "[1]");
    EXPECT_EQ(json_is_valid("[1]"), 1);
    EXPECT_EQ(json_is_valid("[1"), 0);
}

// ---- a text that comes piece by piece ----

Json parse_in_pieces(const std::string& text, size_t size) {
    Pieces pieces{text, size};
    return Json(json_parse_from(Pieces::read, &pieces));
}

TEST(JsonParse, InPiecesOfAnySizeGivesWhatTheWholeTextGives) {
    std::string large = R"(["first")";
    for (int i = 0; i < 30000; ++i) large += R"(,{"name":"of some length \u00e9 \ud83d\ude00","number":-12.50e3})";
    large += "]";
    const std::string large_text = compact(parse(large));
    const std::string text = " {\"a\":[1,-2.5e3,\"x\\u00e9\\n\xC3\xA9\",true,false,null,{\"b\":{}}],\"\":\"\"}\n ";
    for (const size_t size : {1U, 2U, 3U, 7U, 65535U, 65536U, 1U << 20}) {
        EXPECT_EQ(compact(parse_in_pieces(text, size)), compact(parse(text))) << size;
        EXPECT_EQ(compact(parse_in_pieces(large, size)), large_text) << size;
    }
    EXPECT_EQ(compact(parse_in_pieces("7", 1)), "7");
}

TEST(JsonParse, InPiecesRefusesWhatTheWholeTextIsRefusedFor) {
    for (const std::string& text :
         {std::string(), std::string(" "), std::string("{"), std::string("[1] x"), std::string("[1]\0", 4),
          std::string("[1]\0 ", 5), std::string("[\0]", 3), std::string("\"\xC3"), std::string("\"\xED\xA0\x80\""),
          std::string("1e999"), std::string(1000, '['), std::string("\xEF\xBB\xBF{}")})
        for (const size_t size : {1U, 2U, 65536U}) EXPECT_FALSE(parse_in_pieces(text, size)) << text;
    EXPECT_EQ(json_parse_from(nullptr, nullptr), nullptr);
}

TEST(JsonParse, InPiecesEndsWithinMegabytesOnceTheTextIsInvalid) {
    Pieces pieces{"}" + std::string(8 << 20, ' '), 4096};
    EXPECT_EQ(json_parse_from(Pieces::read, &pieces), nullptr);
    EXPECT_LE(pieces.asked, 1 + (2 << 20) / 4096);
}

TEST(JsonParse, InPiecesAsksNoMoreAfterTheEnd) {
    Pieces good{"[]", 100};
    const Json tree(json_parse_from(Pieces::read, &good));
    EXPECT_EQ(compact(tree), "[]");
    EXPECT_EQ(good.asked, 2) << "its end was not asked for, or asked for again";
}
