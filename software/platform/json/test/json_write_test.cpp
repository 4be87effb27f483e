// The text of a tree, compact and formatted.
#include <gtest/gtest.h>

#include "json_test_support.h"

using namespace std::string_literals;

namespace {

/// Writing, parsing and writing again gives the same text, compact and formatted.
void expect_stable(const Json& tree) {
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(compact(parse(compact(tree))), compact(tree));
    EXPECT_EQ(formatted(parse(formatted(tree.get())).get()), formatted(tree.get()));
    EXPECT_EQ(compact(parse(formatted(tree.get()))), compact(tree));
}

}  // namespace

TEST(JsonWrite, CompactTextHasNoWhiteSpace) {
    EXPECT_EQ(compact(parse(" { \"a b\" : [ 1 , { } , [ ] , null ] } ")), R"({"a b":[1,{},[],null]})");
}

TEST(JsonWrite, FormattedTextHasATabPerLevel) {
    const Json tree = parse(R"({"a":1,"b":{"c":[true,{"d":"x"}],"e":{}},"f":[]})");
    EXPECT_EQ(formatted(tree.get()),
              "{\n"
              "\t\"a\": 1,\n"
              "\t\"b\": {\n"
              "\t\t\"c\": [\n"
              "\t\t\ttrue,\n"
              "\t\t\t{\n"
              "\t\t\t\t\"d\": \"x\"\n"
              "\t\t\t}\n"
              "\t\t],\n"
              "\t\t\"e\": {}\n"
              "\t},\n"
              "\t\"f\": []\n"
              "}");
}

TEST(JsonWrite, FormattedScalarsAndEmptyContainersStandAlone) {
    for (const char* text : {"{}", "[]", "1", "\"x\"", "null", "true", "false"})
        EXPECT_EQ(formatted(parse(text).get()), text);
}

TEST(JsonWrite, IndentationIsBounded) {
    const Json tree = parse(nested(JSON_MAX_PARSE_DEPTH, "[", "0", "]"));
    const std::string text = formatted(tree.get());
    EXPECT_NE(text.find("\n" + std::string(JSON_MAX_INDENT, '\t') + "0\n"), std::string::npos);
    EXPECT_EQ(text.find(std::string(JSON_MAX_INDENT + 1, '\t')), std::string::npos);
    expect_stable(tree);
}

TEST(JsonWrite, ControlCharactersAreEscaped) {
    std::string bytes;
    for (char c = 0; c < 0x20; ++c) bytes += c;
    const Json text(json_new_a_n(nullptr, 0, bytes.data(), bytes.size()));
    EXPECT_EQ(compact(text),
              R"("\u0000\u0001\u0002\u0003\u0004\u0005\u0006\u0007\b\t\n\u000B\f\r\u000E\u000F)"
              R"(\u0010\u0011\u0012\u0013\u0014\u0015\u0016\u0017\u0018\u0019\u001A\u001B\u001C\u001D\u001E\u001F")");
    expect_stable(text);
}

TEST(JsonWrite, QuotesAndBackslashesAreEscapedAndSlashesAreNot) {
    const Json text(json_new_a(nullptr, "a\"b\\c/d\x7F"));
    EXPECT_EQ(compact(text), "\"a\\\"b\\\\c/d\x7F\"");
    expect_stable(text);
}

TEST(JsonWrite, NamesAreEscapedLikeValues) {
    const Json tree = parse(R"({"a\"\u0000\n":1})");
    EXPECT_EQ(compact(tree), R"({"a\"\u0000\n":1})");
    EXPECT_EQ(formatted(tree.get()), "{\n\t\"a\\\"\\u0000\\n\": 1\n}");
}

TEST(JsonWrite, CharactersBeyondAsciiAreWrittenAsTheyAre) {
    const std::string text = "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"";
    EXPECT_EQ(compact(parse(text)), text);
    EXPECT_EQ(compact(parse(R"("\u00e9\u20ac\ud83d\ude00")")), text);
}

TEST(JsonWrite, TheNodesOwnNameIsNotWritten) {
    const Json named(json_new_a("name", "value"));
    EXPECT_EQ(compact(named), "\"value\"");
    const Json tree = parse(R"({"a":{"b":1}})");
    EXPECT_EQ(compact(json_find(tree.get(), "a")), R"({"b":1})");
}

TEST(JsonWrite, NamesOfArrayElementsAreNotWritten) {
    const Json array(json_new(JSON_ARRAY));
    ASSERT_EQ(json_push_back(array.get(), json_new_i("name", 1)), 1);
    EXPECT_EQ(compact(array), "[1]");
}

TEST(JsonWrite, MembersWithoutANameHaveAnEmptyOne) {
    const Json object(json_new(JSON_NODE));
    ASSERT_EQ(json_push_back(object.get(), json_new(JSON_NULL)), 1);
    EXPECT_EQ(compact(object), R"({"":null})");
}

TEST(JsonWrite, LengthIsThatOfTheText) {
    const Json tree = parse(R"(["a\u0000b"])");
    size_t length = 99;
    EXPECT_EQ(take(json_write_n(tree.get(), &length)), R"(["a\u0000b"])");
    EXPECT_EQ(length, 12U);
    EXPECT_EQ(take(json_write_formatted_n(tree.get(), &length)), "[\n\t\"a\\u0000b\"\n]");
    EXPECT_EQ(length, 15U);
    EXPECT_EQ(take(json_write(tree.get())), R"(["a\u0000b"])");
    EXPECT_EQ(take(json_write_formatted(tree.get())), "[\n\t\"a\\u0000b\"\n]");
}

TEST(JsonWrite, WhatWasWrittenStaysTheSameWhenParsedAndWrittenAgain) {
    for (const char* text : {R"({"a":[1,2.50,-0,1e3,-15E-1],"b":{"a":null,"a":true},"":""})", "[[[[]]],{}]", "-0.0e+00",
                             R"("\u0000\ud83d\ude00\u007f\"\\\/")"})
        expect_stable(parse(text));
}

TEST(JsonWrite, LongTextsAndManyMembersAreWrittenWhole) {
    const std::string long_text(1'000'000, 'x');
    const Json value(json_new_a(nullptr, long_text.c_str()));
    EXPECT_EQ(compact(value), "\"" + long_text + "\"");

    std::string array = "[0";
    for (int i = 1; i < 50'000; ++i) array += "," + std::to_string(i);
    EXPECT_EQ(compact(parse(array + "]")), array + "]");
}

TEST(JsonWrite, InPiecesGivesTheSameBytes) {
    std::string array = "[0";
    for (int i = 1; i < 50'000; ++i) array += ",{\"name\":\"" + std::to_string(i) + "\\u0001\"}";
    const Json large = parse(array + "]");
    const Json deep = parse(nested(100, "[", "{}", "]"));
    const Json value = parse("7");
    for (const Json* tree : {&large, &deep, &value}) {
        std::string text;
        const auto append = [](const char* bytes, size_t length, void* context) {
            static_cast<std::string*>(context)->append(bytes, length);
            return 1;
        };
        EXPECT_EQ(json_write_formatted_to(tree->get(), append, &text), 1);
        EXPECT_EQ(text, formatted(tree->get()));
    }
}

TEST(JsonWrite, InPiecesEndsWhenTheTakerRefuses) {
    const Json tree(json_new_a(nullptr, std::string(1'000'000, 'x').c_str()));
    int calls = 0;
    const auto refuse_second = [](const char*, size_t, void* context) -> int {
        return ++*static_cast<int*>(context) < 2 ? 1 : 0;
    };
    EXPECT_EQ(json_write_formatted_to(tree.get(), refuse_second, &calls), 0);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(json_write_formatted_to(nullptr, nullptr, nullptr), 0);
}

TEST(JsonWrite, KeepsNamesAndStringsOfAnyLength) {
    for (const size_t length : {0U, 1U, 7U, 15U, 16U, 17U, 1023U, 1024U, 1025U, 2048U, 5000U}) {
        for (const char* piece : {"plain", "\"", "\x01 ", "\\n"}) {
            std::string text;
            while (text.size() < length) text += piece;
            const Json object(json_new(JSON_NODE));
            json_push_back(object.get(), json_new_a_n(text.data(), text.size(), text.data(), text.size()));
            for (const std::string& written : {compact(object), formatted(object.get())}) {
                const Json again = parse(written);
                ASSERT_NE(again, nullptr) << written;
                EXPECT_EQ(name_of(json_at(again.get(), 0)), text);
                EXPECT_EQ(text_of(json_at(again.get(), 0)), text);
            }
        }
    }
}

std::vector<std::string> texts_to_escape() {
    std::string every_byte(1, '\0');
    for (char c = 0x7f; c > 0; --c) every_byte += c;
    return {"",
            "a plain text of some length",
            "\u0001\u0002\u001f\u0003",
            "\"\\\"\\\"\\",
            "\b\f\n\r\t \b\f\n\r\t",
            "umlaut \u00e4 and euro \u20ac / slash \u007f",
            every_byte};
}

TEST(JsonWrite, TellsTheLengthBeforehand) {
    for (const std::string& text : texts_to_escape()) {
        const Json node(json_new_a_n("", 0, text.data(), text.size()));
        EXPECT_EQ(json_written_length(text.data(), text.size()), compact(node).size() - 2) << text;
    }
    EXPECT_EQ(json_written_length(nullptr, 5), 0U);
}

TEST(JsonWrite, EscapesATextAloneAsInAString) {
    for (const std::string& text : texts_to_escape()) {
        const Json node(json_new_a_n("", 0, text.data(), text.size()));
        std::string escaped(text.size() * JSON_LONGEST_ESCAPE + JSON_ESCAPE_SPARE, '?');
        escaped.resize(json_escape_n(text.data(), text.size(), escaped.data()));
        EXPECT_EQ('"' + escaped + '"', compact(node)) << text;
    }
}

TEST(JsonWrite, EscapesIntoNoMoreRoomThanTheLongestEscapesNeed) {
    for (size_t length = 0; length < 100; ++length) {
        const std::string text(length, '\x01');
        std::vector<char> room(length * JSON_LONGEST_ESCAPE + JSON_ESCAPE_SPARE + 1, '?');
        EXPECT_EQ(json_escape_n(text.data(), length, room.data()), length * JSON_LONGEST_ESCAPE);
        EXPECT_EQ(room.back(), '?');
        const std::string plain(length, 'p');
        EXPECT_EQ(json_escape_n(plain.data(), length, room.data()), length);
        EXPECT_EQ(room.back(), '?');
    }
}

TEST(JsonWrite, TellsWhatCanBeAName) {
    for (const std::string& text : texts_to_escape()) EXPECT_EQ(json_is_text_n(text.data(), text.size()), 1) << text;
    for (const std::string& text : {"\xff"s, "a long text of ASCII\xc3"s, "\xed\xa0\x80"s, "\xc0\x80"s}) {
        EXPECT_EQ(json_is_text_n(text.data(), text.size()), 0) << text;
        EXPECT_EQ(json_new_a_n(text.data(), text.size(), "", 0), nullptr) << text;
    }
}
