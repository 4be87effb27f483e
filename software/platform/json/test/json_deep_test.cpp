// Trees as deep as calls can build them.
#include <gtest/gtest.h>

#include "json_test_support.h"

namespace {

constexpr int kLevels = 1'000'000;

/// Objects within objects, all named "d", built from the top down.
Json deep_from_top(int levels) {
    Json root(json_new(JSON_NODE));
    JSONNODE* lowest = root.get();
    for (int i = 1; i < levels; ++i) {
        JSONNODE* child = json_new(JSON_NODE);
        json_set_name(child, "d");
        EXPECT_EQ(json_push_back(lowest, child), 1);
        lowest = child;
    }
    return root;
}

/// Arrays within arrays, built from the bottom up.
Json deep_from_bottom(int levels) {
    Json top(json_new(JSON_ARRAY));
    for (int i = 1; i < levels; ++i) {
        Json above(json_new(JSON_ARRAY));
        EXPECT_EQ(json_push_back(above.get(), top.get()), 1);
        static_cast<void>(top.release());
        top = std::move(above);
    }
    return top;
}

JSONNODE* lowest_of(JSONNODE* node) {
    while (json_empty(node) == 0) node = json_at(node, 0);
    return node;
}

}  // namespace

TEST(JsonDeep, TreesOfAMillionLevelsAreBuiltAndDeleted) {
    EXPECT_NE(deep_from_top(kLevels), nullptr);
    EXPECT_NE(deep_from_bottom(kLevels), nullptr);
}

TEST(JsonDeep, TreesOfAMillionLevelsAreWritten) {
    const std::string text = compact(deep_from_top(kLevels));
    EXPECT_EQ(text.size(), 2U * kLevels + 4U * (kLevels - 1));
    EXPECT_EQ(text.substr(0, 12), R"({"d":{"d":{")");
    EXPECT_EQ(compact(deep_from_bottom(kLevels)), std::string(kLevels, '[') + std::string(kLevels, ']'));
}

TEST(JsonDeep, FormattedTextGrowsWithTheDepthOnly) {
    const std::string text = formatted(deep_from_top(kLevels).get());
    EXPECT_LT(text.size(), static_cast<size_t>(kLevels) * (2 * JSON_MAX_INDENT + 16));
}

TEST(JsonDeep, TreesOfAMillionLevelsAreDuplicatedAndCompared) {
    const Json tree = deep_from_top(kLevels);
    const Json copy(json_duplicate(tree.get()));
    EXPECT_EQ(json_equal(tree.get(), copy.get()), 1);
    json_push_back(lowest_of(copy.get()), json_new(JSON_NULL));
    EXPECT_EQ(json_equal(tree.get(), copy.get()), 0);
}

TEST(JsonDeep, TreesOfAMillionLevelsAreSetAndCleared) {
    const Json tree = deep_from_bottom(kLevels);
    const Json target(json_new(JSON_NULL));
    json_set_n(target.get(), tree.get());
    EXPECT_EQ(json_equal(tree.get(), target.get()), 1);
    json_clear(target.get());
    EXPECT_EQ(compact(target), "[]");
}

TEST(JsonDeep, AnAncestorIsRefusedAMillionLevelsBelow) {
    const Json tree = deep_from_top(kLevels);
    EXPECT_EQ(json_push_back(lowest_of(tree.get()), tree.get()), 0);
    const Json copy(json_duplicate(tree.get()));
    json_set_n(copy.get(), lowest_of(copy.get()));
    EXPECT_EQ(json_equal(copy.get(), tree.get()), 1);
}

TEST(JsonDeep, ManySmallTreesAreHungDeepDownWithoutClimbingEachTime) {
    constexpr size_t kTrees = 100'000;
    const Json tree = deep_from_top(kLevels);
    JSONNODE* lowest = lowest_of(tree.get());
    for (size_t i = 0; i < kTrees; ++i) {
        JSONNODE* small = json_new(JSON_NODE);
        ASSERT_EQ(json_push_back(small, json_new(JSON_NULL)), 1);
        ASSERT_EQ(json_push_back(lowest, small), 1);
    }
    EXPECT_EQ(json_size(lowest), kTrees);
}
