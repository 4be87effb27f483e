// Making, copying, naming and setting nodes, and who owns them.
#include <gtest/gtest.h>

#include "json_test_support.h"

using namespace std::string_literals;

TEST(JsonNew, EachTypeStartsWithItsOwnValue) {
    const char types[] = {JSON_NULL, JSON_STRING, JSON_NUMBER, JSON_BOOL, JSON_ARRAY, JSON_NODE};
    const char* const written[] = {"null", "\"\"", "0", "false", "[]", "{}"};
    for (size_t i = 0; i < std::size(types); ++i) {
        const Json node(json_new(types[i]));
        EXPECT_EQ(json_type(node.get()), types[i]);
        EXPECT_EQ(compact(node), written[i]);
        EXPECT_EQ(name_of(node.get()), "");
    }
}

TEST(JsonNew, UnknownTypesAreRefused) {
    for (const int type : {-1, 6, 100, 127, -128}) EXPECT_EQ(json_new(static_cast<char>(type)), nullptr);
}

TEST(JsonNew, NamedValuesHaveNameAndValue) {
    const Json text(json_new_a("t", "x"));
    const Json number(json_new_i("n", -5));
    const Json yes(json_new_b("y", 2));
    const Json no(json_new_b("z", 0));
    EXPECT_EQ(name_of(text.get()), "t");
    EXPECT_EQ(text_of(text.get()), "x");
    EXPECT_EQ(name_of(number.get()), "n");
    EXPECT_EQ(json_as_int(number.get()), -5);
    EXPECT_EQ(name_of(yes.get()), "y");
    EXPECT_EQ(json_as_bool(yes.get()), 1);
    EXPECT_EQ(compact(yes), "true");
    EXPECT_EQ(json_as_bool(no.get()), 0);
}

TEST(JsonNew, TextsOfEveryLengthAreKept) {
    for (size_t length = 0; length < 40; ++length) {
        const std::string name(length, 'n');
        const std::string value(length, 'v');
        const Json node(json_new_a(name.c_str(), value.c_str()));
        EXPECT_EQ(name_of(node.get()), name);
        EXPECT_EQ(text_of(node.get()), value);
        EXPECT_STREQ(json_name_view(node.get(), nullptr), name.c_str());
        EXPECT_STREQ(json_string_view(node.get(), nullptr), value.c_str());
        EXPECT_EQ(take(json_name(node.get())), name);
        EXPECT_EQ(take(json_as_string(node.get())), value);
    }
}

TEST(JsonNew, InvalidUtf8IsRefused) {
    EXPECT_EQ(json_new_a("a", "\xFF"), nullptr);
    EXPECT_EQ(json_new_a("\xFF", "a"), nullptr);
    EXPECT_EQ(json_new_a("a", "\xC3"), nullptr);
    EXPECT_EQ(json_new_a("a", "\xED\xA0\x80"), nullptr);
    EXPECT_EQ(json_new_i("\x80", 1), nullptr);
    EXPECT_EQ(json_new_b("\xC0\x80", 1), nullptr);
    EXPECT_EQ(json_new_a_n("a", 1, "\xE2\x82\xAC", 2), nullptr);
    EXPECT_EQ(json_new_a_n("\xE2\x82\xAC", 1, "a", 1), nullptr);
}

TEST(JsonNew, LengthsIncludeNulBytes) {
    const Json node(json_new_a_n("n\0m", 3, "a\0b", 3));
    EXPECT_EQ(name_of(node.get()), "n\0m"s);
    EXPECT_EQ(text_of(node.get()), "a\0b"s);
    EXPECT_STREQ(json_string_view(node.get(), nullptr), "a");
}

TEST(JsonValue, ValuesAreShownAsText) {
    const Json tree = parse(R"(["text",-1.50,true,false,null,[1],{"a":1}])");
    const char* const shown[] = {"text", "-1.50", "true", "false", "null", "", ""};
    for (size_t i = 0; i < std::size(shown); ++i) {
        EXPECT_EQ(text_of(json_at(tree.get(), i)), shown[i]);
        EXPECT_EQ(take(json_as_string(json_at(tree.get(), i))), shown[i]);
    }
}

TEST(JsonValue, OnlyTrueIsTrue) {
    const Json tree = parse(R"([true,false,1,"true",null,[true]])");
    EXPECT_EQ(json_as_bool(json_at(tree.get(), 0)), 1);
    for (size_t i = 1; i < json_size(tree.get()); ++i) EXPECT_EQ(json_as_bool(json_at(tree.get(), i)), 0);
}

TEST(JsonName, IsChangedAndRemoved) {
    const Json node(json_new_a("old", "value"));
    json_set_name(node.get(), "a name that is longer than fifteen bytes");
    EXPECT_EQ(name_of(node.get()), "a name that is longer than fifteen bytes");
    json_set_name(node.get(), nullptr);
    EXPECT_EQ(name_of(node.get()), "");
    json_set_name_n(node.get(), "x\0yz", 3);
    EXPECT_EQ(name_of(node.get()), "x\0y"s);
    json_set_name_n(node.get(), nullptr, 5);
    EXPECT_EQ(name_of(node.get()), "");
}

TEST(JsonName, InvalidUtf8LeavesItUnchanged) {
    const Json node(json_new_a("old", "value"));
    json_set_name(node.get(), "\xFF");
    json_set_name_n(node.get(), "\xC3\xA9", 1);
    EXPECT_EQ(name_of(node.get()), "old");
}

TEST(JsonName, MayBeSetFromItsOwnView) {
    const Json node(json_new_a("a name that is longer than fifteen bytes", "value"));
    json_set_name_n(node.get(), json_name_view(node.get(), nullptr) + 2, 4);
    EXPECT_EQ(name_of(node.get()), "name");
    json_set_name(node.get(), json_name_view(node.get(), nullptr) + 1);
    EXPECT_EQ(name_of(node.get()), "ame");
}

TEST(JsonDuplicate, CopiesEverythingIndependently) {
    const std::string text =
        R"({"a":[1,2.50,"x\u0000y",true,null,{}],"a":{"b":"a text that is longer than fifteen bytes"}})";
    const Json tree = parse(text);
    json_set_name(tree.get(), "name");
    const Json copy(json_duplicate(tree.get()));
    const Json second(json_copy(tree.get()));
    EXPECT_EQ(name_of(copy.get()), "name");
    EXPECT_EQ(compact(copy), text);
    EXPECT_EQ(compact(second), text);
    json_clear(copy.get());
    EXPECT_EQ(compact(tree), text);
}

TEST(JsonDuplicate, OfAChildHasNoParent) {
    const Json tree = parse(R"({"a":{"b":1}})");
    const Json target(json_new(JSON_NODE));
    EXPECT_EQ(json_push_back(target.get(), json_duplicate(json_find(tree.get(), "a"))), 1);
    EXPECT_EQ(compact(target), R"({"a":{"b":1}})");
    EXPECT_EQ(compact(tree), R"({"a":{"b":1}})");
}

TEST(JsonClear, EmptiesContainersAndResetsValues) {
    const char* const texts[] = {R"({"a":[1]})", "[1,[2]]", "\"x\"", "5.5", "true", "null"};
    const char* const cleared[] = {"{}", "[]", "\"\"", "0", "false", "null"};
    for (size_t i = 0; i < std::size(texts); ++i) {
        const Json node = parse(texts[i]);
        json_set_name(node.get(), "kept");
        json_clear(node.get());
        EXPECT_EQ(compact(node), cleared[i]);
        EXPECT_EQ(name_of(node.get()), "kept");
    }
}

TEST(JsonDelete, TakesTheNodeOutOfItsParent) {
    const Json tree = parse(R"({"a":1,"b":[2],"c":3})");
    json_delete(json_find(tree.get(), "b"));
    EXPECT_EQ(compact(tree), R"({"a":1,"c":3})");
}

TEST(JsonOwnership, ANodeHasOneParentOnly) {
    const Json first(json_new(JSON_ARRAY));
    const Json second(json_new(JSON_ARRAY));
    JSONNODE* child = json_new_i(nullptr, 1);
    ASSERT_EQ(json_push_back(first.get(), child), 1);
    EXPECT_EQ(json_push_back(second.get(), child), 0);
    EXPECT_EQ(json_push_back(first.get(), child), 0);
    EXPECT_EQ(json_insert(second.get(), json_begin(second.get()), child), nullptr);
    EXPECT_EQ(compact(first), "[1]");
    EXPECT_EQ(compact(second), "[]");
}

TEST(JsonOwnership, ValuesHaveNoChildren) {
    const Json child(json_new_i("a", 1));
    for (const char* text : {"null", "\"x\"", "1", "true"}) {
        const Json value = parse(text);
        EXPECT_EQ(json_push_back(value.get(), child.get()), 0);
        EXPECT_EQ(json_insert(value.get(), json_begin(value.get()), child.get()), nullptr);
        EXPECT_EQ(compact(value), text);
    }
}

TEST(JsonOwnership, ANodeIsNotPushedIntoItselfOrBelowItself) {
    const Json tree = parse(R"({"a":{"b":[]}})");
    JSONNODE* lowest = json_find(json_find(tree.get(), "a"), "b");
    EXPECT_EQ(json_push_back(tree.get(), tree.get()), 0);
    EXPECT_EQ(json_push_back(lowest, tree.get()), 0);
    EXPECT_EQ(json_insert(lowest, json_end(lowest), tree.get()), nullptr);
    EXPECT_EQ(compact(tree), R"({"a":{"b":[]}})");
}

TEST(JsonOwnership, ARefusedChildStaysTheCallers) {
    const Json parent(json_new(JSON_NUMBER));
    const Json child(json_new_i(nullptr, 1));
    EXPECT_EQ(json_push_back(parent.get(), child.get()), 0);
    EXPECT_EQ(json_as_int(child.get()), 1);
}

TEST(JsonSetN, CopiesTypeAndValueAndKeepsTheName) {
    const char* const texts[] = {"null", "\"x\"", "1.50", "true", "[1,[2]]", R"({"a":{"b":1}})"};
    for (const char* from : texts) {
        for (const char* to : texts) {
            const Json source = parse(from);
            const Json destination = parse(to);
            json_set_name(source.get(), "source");
            json_set_name(destination.get(), "destination");
            json_set_n(destination.get(), source.get());
            EXPECT_EQ(compact(destination), from);
            EXPECT_EQ(compact(source), from);
            EXPECT_EQ(name_of(destination.get()), "destination");
        }
    }
}

TEST(JsonSetN, KeepsTheParent) {
    const Json tree = parse(R"({"a":1,"b":{"c":[]}})");
    const Json source = parse("[7]");
    json_set_n(json_find(tree.get(), "a"), source.get());
    EXPECT_EQ(compact(tree), R"({"a":[7],"b":{"c":[]}})");
    json_delete(json_find(tree.get(), "a"));
    EXPECT_EQ(compact(tree), R"({"b":{"c":[]}})");
}

TEST(JsonSetN, ChildrenOfTheCopyBelongToTheDestination) {
    const Json destination = parse("1");
    const Json source = parse(R"({"a":1,"b":2})");
    json_set_n(destination.get(), source.get());
    json_delete(json_find(destination.get(), "a"));
    EXPECT_EQ(compact(destination), R"({"b":2})");
    EXPECT_EQ(compact(source), R"({"a":1,"b":2})");
}

TEST(JsonSetN, AnAncestorMayBeCopiedIntoItsDescendant) {
    const Json tree = parse(R"({"a":[1]})");
    json_set_n(json_find(tree.get(), "a"), tree.get());
    EXPECT_EQ(compact(tree), R"({"a":{"a":[1]}})");
}

TEST(JsonSetN, ANodeIsNotReplacedByItselfOrWhatIsBelowIt) {
    const Json tree = parse(R"({"a":[1]})");
    json_set_n(tree.get(), tree.get());
    json_set_n(tree.get(), json_find(tree.get(), "a"));
    EXPECT_EQ(compact(tree), R"({"a":[1]})");
}
