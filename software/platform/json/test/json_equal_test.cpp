// When two nodes are equal.
#include <gtest/gtest.h>

#include "json_test_support.h"

namespace {

bool equal(const char* a, const char* b) {
    const Json left = parse(a);
    const Json right = parse(b);
    const int result = json_equal(left.get(), right.get());
    EXPECT_EQ(json_equal(right.get(), left.get()), result);
    EXPECT_TRUE(result == 0 || result == 1) << result;
    return result == 1;
}

}  // namespace

TEST(JsonEqual, EqualTreesAreEqual) {
    for (const char* text : {"null", "true", "\"x\"", "1", "[]", "{}", R"({"a":[1,{"b":null}],"c":"x"})"})
        EXPECT_TRUE(equal(text, text));
}

TEST(JsonEqual, DifferentTypesAreDifferent) {
    const char* const values[] = {"null", "false", "0", "\"\"", "[]", "{}", "\"0\"", "\"null\""};
    for (const char* a : values)
        for (const char* b : values) EXPECT_EQ(equal(a, b), a == b) << a << " and " << b;
}

TEST(JsonEqual, StringsAreComparedByBytes) {
    EXPECT_TRUE(equal(R"("A\u0000")", R"("\u0041\u0000")"));
    EXPECT_FALSE(equal(R"("a\u0000b")", R"("a\u0000c")"));
    EXPECT_FALSE(equal(R"("a")", R"("a\u0000")"));
    EXPECT_FALSE(equal(R"("a")", R"("A")"));
}

TEST(JsonEqual, NumbersAreComparedByValue) {
    EXPECT_TRUE(equal("[1,{\"a\":35.0}]", "[1.0,{\"a\":350e-1}]"));
    EXPECT_FALSE(equal("[1]", "[1.0000000000000000000001]"));
}

TEST(JsonEqual, ChildrenAreComparedInOrder) {
    EXPECT_FALSE(equal("[1,2]", "[2,1]"));
    EXPECT_FALSE(equal(R"({"a":1,"b":2})", R"({"b":2,"a":1})"));
    EXPECT_FALSE(equal("[1]", "[1,1]"));
    EXPECT_FALSE(equal("[[1],[]]", "[[],[1]]"));
}

TEST(JsonEqual, MemberNamesCount) {
    EXPECT_FALSE(equal(R"({"a":1})", R"({"b":1})"));
    EXPECT_FALSE(equal(R"({"a":{"x":1}})", R"({"a":{"y":1}})"));
}

TEST(JsonEqual, NamesOfArrayElementsDoNotCount) {
    const Json left(json_new(JSON_ARRAY));
    const Json right(json_new(JSON_ARRAY));
    json_push_back(left.get(), json_new_i("a", 1));
    json_push_back(right.get(), json_new_i("b", 1));
    EXPECT_EQ(json_equal(left.get(), right.get()), 1);
}

TEST(JsonEqual, NamesOfTheNodesThemselvesDoNotCount) {
    const Json tree = parse(R"({"a":[1],"b":[1]})");
    EXPECT_EQ(json_equal(json_find(tree.get(), "a"), json_find(tree.get(), "b")), 1);
}

TEST(JsonEqual, NullsAreEqualToEachOtherOnly) {
    const Json node = parse("null");
    EXPECT_EQ(json_equal(nullptr, nullptr), 1);
    EXPECT_EQ(json_equal(node.get(), nullptr), 0);
    EXPECT_EQ(json_equal(nullptr, node.get()), 0);
}
