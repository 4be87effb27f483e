// Adding, inserting, taking out and walking children.
#include <gtest/gtest.h>

#include "json_test_support.h"

namespace {

/// An array of the integers from 0 to `count` - 1.
Json numbers(int count) {
    Json array(json_new(JSON_ARRAY));
    for (int i = 0; i < count; ++i) EXPECT_EQ(json_push_back(array.get(), json_new_i(nullptr, i)), 1);
    return array;
}

}  // namespace

TEST(JsonChildren, PushBackAppendsInOrder) {
    const Json object(json_new(JSON_NODE));
    EXPECT_EQ(json_push_back(object.get(), json_new_i("b", 1)), 1);
    EXPECT_EQ(json_push_back(object.get(), json_new_a("a", "x")), 1);
    EXPECT_EQ(json_push_back(object.get(), json_new_b("b", 1)), 1);
    EXPECT_EQ(compact(object), R"({"b":1,"a":"x","b":true})");
}

TEST(JsonChildren, SizeCountsChildren) {
    EXPECT_EQ(json_size(numbers(3).get()), 3U);
    EXPECT_EQ(json_size(parse(R"({"a":1})").get()), 1U);
    EXPECT_EQ(json_size(parse("[]").get()), 0U);
    EXPECT_EQ(json_size(parse("\"text\"").get()), 0U);
}

TEST(JsonChildren, EmptyIsTrueWithoutChildren) {
    EXPECT_EQ(json_empty(parse("[]").get()), 1);
    EXPECT_EQ(json_empty(parse("{}").get()), 1);
    EXPECT_EQ(json_empty(parse("7").get()), 1);
    EXPECT_EQ(json_empty(parse("[0]").get()), 0);
}

TEST(JsonChildren, IteratorsVisitEveryChildInOrder) {
    const Json array = numbers(5);
    int64_t expected = 0;
    for (JSONNODE_ITERATOR it = json_begin(array.get()); it != json_end(array.get()); ++it)
        EXPECT_EQ(json_as_int(*it), expected++);
    EXPECT_EQ(expected, 5);
}

TEST(JsonChildren, IteratorsOfNodesWithoutChildrenAreEqual) {
    for (const char* text : {"[]", "{}", "1", "\"x\"", "null"}) {
        const Json node = parse(text);
        EXPECT_EQ(json_begin(node.get()), json_end(node.get()));
    }
}

TEST(JsonChildren, AtGivesTheChildAtAPosition) {
    const Json array = numbers(3);
    EXPECT_EQ(json_as_int(json_at(array.get(), 2)), 2);
    EXPECT_EQ(json_at(array.get(), 3), nullptr);
    EXPECT_EQ(json_at(array.get(), SIZE_MAX), nullptr);
    EXPECT_EQ(name_of(json_at(parse(R"({"a":1,"b":2})").get(), 1)), "b");
    EXPECT_EQ(json_at(parse("1").get(), 0), nullptr);
}

TEST(JsonChildren, InsertPutsTheChildBeforeAPosition) {
    const Json array = numbers(2);
    JSONNODE_ITERATOR place = json_insert(array.get(), json_begin(array.get()), json_new_i(nullptr, 10));
    EXPECT_EQ(place, json_begin(array.get()));
    place = json_insert(array.get(), json_begin(array.get()) + 2, json_new_i(nullptr, 11));
    EXPECT_EQ(json_as_int(*place), 11);
    place = json_insert(array.get(), json_end(array.get()), json_new_i(nullptr, 12));
    EXPECT_EQ(place, json_end(array.get()) - 1);
    EXPECT_EQ(compact(array), "[10,0,11,1,12]");
}

TEST(JsonChildren, InsertIntoAnEmptyContainerIsAtItsEnd) {
    const Json array(json_new(JSON_ARRAY));
    ASSERT_NE(json_insert(array.get(), json_end(array.get()), json_new_i(nullptr, 1)), nullptr);
    EXPECT_EQ(compact(array), "[1]");
}

TEST(JsonChildren, InsertRefusesPositionsOutsideTheParent) {
    const Json array = numbers(2);
    const Json other = numbers(2);
    const Json child(json_new_i(nullptr, 9));
    EXPECT_EQ(json_insert(array.get(), json_end(array.get()) + 1, child.get()), nullptr);
    EXPECT_EQ(json_insert(array.get(), json_begin(array.get()) - 1, child.get()), nullptr);
    EXPECT_EQ(json_insert(array.get(), json_begin(other.get()), child.get()), nullptr);
    EXPECT_EQ(json_insert(array.get(), nullptr, child.get()), nullptr);
    auto* misaligned = reinterpret_cast<JSONNODE_ITERATOR>(reinterpret_cast<char*>(json_begin(array.get())) + 1);
    EXPECT_EQ(json_insert(array.get(), misaligned, child.get()), nullptr);
    EXPECT_EQ(compact(array), "[0,1]");
}

TEST(JsonChildren, InsertMultiCopiesARange) {
    const Json target = numbers(2);
    const Json source = parse(R"(["a",{"b":[1]},null])");
    JSONNODE_ITERATOR place =
        json_insert_multi(target.get(), json_begin(target.get()) + 1, json_begin(source.get()), json_end(source.get()));
    EXPECT_EQ(place, json_begin(target.get()) + 1);
    EXPECT_EQ(compact(target), R"([0,"a",{"b":[1]},null,1])");
    EXPECT_EQ(compact(source), R"(["a",{"b":[1]},null])");
}

TEST(JsonChildren, InsertMultiKeepsNamesAndFindsThem) {
    const Json target = parse(R"({"a":1})");
    const Json source = parse(R"({"b":2,"a":3})");
    ASSERT_NE(
        json_insert_multi(target.get(), json_begin(target.get()), json_begin(source.get()), json_end(source.get())),
        nullptr);
    EXPECT_EQ(compact(target), R"({"b":2,"a":3,"a":1})");
    EXPECT_EQ(json_as_int(json_find(target.get(), "a")), 3);
}

TEST(JsonChildren, InsertMultiOfAnEmptyRangeChangesNothing) {
    const Json target = numbers(2);
    const Json source = numbers(1);
    JSONNODE_ITERATOR position = json_begin(target.get()) + 1;
    EXPECT_EQ(json_insert_multi(target.get(), position, json_begin(source.get()), json_begin(source.get())), position);
    EXPECT_EQ(compact(target), "[0,1]");
}

TEST(JsonChildren, InsertMultiRefusesItsOwnChildrenAndBadRanges) {
    const Json target = numbers(3);
    const Json source = numbers(2);
    JSONNODE* const node = target.get();
    EXPECT_EQ(json_insert_multi(node, json_end(node), json_begin(node), json_end(node)), nullptr);
    EXPECT_EQ(json_insert_multi(node, json_end(node), json_end(source.get()), json_begin(source.get())), nullptr);
    EXPECT_EQ(json_insert_multi(node, json_end(node) + 1, json_begin(source.get()), json_end(source.get())), nullptr);
    EXPECT_EQ(json_insert_multi(json_at(node, 0), json_end(json_at(node, 0)), json_begin(source.get()),
                                json_end(source.get())),
              nullptr);
    EXPECT_EQ(compact(target), "[0,1,2]");
}

TEST(JsonChildren, InsertMultiMayCopyAnAncestorsChildren) {
    const Json tree = parse(R"([1,[2]])");
    JSONNODE* inner = json_at(tree.get(), 1);
    ASSERT_NE(json_insert_multi(inner, json_end(inner), json_begin(tree.get()), json_end(tree.get())), nullptr);
    EXPECT_EQ(compact(tree), "[1,[2,1,[2]]]");
}

TEST(JsonChildren, EraseDeletesAndGivesTheFollowingPosition) {
    const Json array = numbers(4);
    JSONNODE_ITERATOR next = json_erase(array.get(), json_begin(array.get()) + 1);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(json_as_int(*next), 2);
    EXPECT_EQ(compact(array), "[0,2,3]");
    next = json_erase(array.get(), json_end(array.get()) - 1);
    EXPECT_EQ(next, json_end(array.get()));
    EXPECT_EQ(compact(array), "[0,2]");
}

TEST(JsonChildren, ErasingAllChildrenOneByOneEndsAtTheEnd) {
    const Json array = numbers(100);
    JSONNODE_ITERATOR it = json_begin(array.get());
    while (it != json_end(array.get())) it = json_erase(array.get(), it);
    EXPECT_EQ(json_empty(array.get()), 1);
    EXPECT_EQ(compact(array), "[]");
    EXPECT_EQ(json_push_back(array.get(), json_new_i(nullptr, 5)), 1);
    EXPECT_EQ(compact(array), "[5]");
}

TEST(JsonChildren, EraseRefusesPositionsOutsideTheParent) {
    const Json array = numbers(2);
    const Json empty = parse("[]");
    EXPECT_EQ(json_erase(array.get(), json_end(array.get())), nullptr);
    EXPECT_EQ(json_erase(array.get(), nullptr), nullptr);
    EXPECT_EQ(json_erase(empty.get(), json_begin(empty.get())), nullptr);
    EXPECT_EQ(compact(array), "[0,1]");
}

TEST(JsonChildren, EraseIfDeletesWhatMatches) {
    const Json array = numbers(10);
    int64_t asked = 0;
    const auto is_odd = [](const JSONNODE* child, void* context) {
        EXPECT_EQ(json_as_int(child), (*static_cast<int64_t*>(context))++);
        return static_cast<int>(json_as_int(child) % 2);
    };
    EXPECT_EQ(json_erase_if(array.get(), is_odd, &asked), 5U);
    EXPECT_EQ(asked, 10);
    EXPECT_EQ(compact(array), "[0,2,4,6,8]");
}

TEST(JsonChildren, EraseIfMayDeleteAllOrNothing) {
    const Json array = numbers(3);
    const auto never = [](const JSONNODE*, void*) { return 0; };
    const auto always = [](const JSONNODE*, void*) { return 1; };
    EXPECT_EQ(json_erase_if(array.get(), never, nullptr), 0U);
    EXPECT_EQ(compact(array), "[0,1,2]");
    EXPECT_EQ(json_erase_if(array.get(), always, nullptr), 3U);
    EXPECT_EQ(compact(array), "[]");
    EXPECT_EQ(json_erase_if(array.get(), always, nullptr), 0U);
}

TEST(JsonChildren, PopBackTakesTheFirstMemberOfThatName) {
    const Json object = parse(R"({"a":1,"b":2,"a":3})");
    const Json first(json_pop_back(object.get(), "a"));
    EXPECT_EQ(json_as_int(first.get()), 1);
    EXPECT_EQ(name_of(first.get()), "a");
    EXPECT_EQ(compact(object), R"({"b":2,"a":3})");
    EXPECT_EQ(json_pop_back(object.get(), "c"), nullptr);
}

TEST(JsonChildren, PopBackAtTakesTheChildAtAPosition) {
    const Json array = numbers(3);
    const Json middle(json_pop_back_at(array.get(), 1));
    EXPECT_EQ(json_as_int(middle.get()), 1);
    EXPECT_EQ(compact(array), "[0,2]");
    EXPECT_EQ(json_pop_back_at(array.get(), 2), nullptr);
}

TEST(JsonChildren, ATakenChildMayBePushedElsewhere) {
    const Json source = parse(R"({"a":{"b":1}})");
    const Json target(json_new(JSON_ARRAY));
    EXPECT_EQ(json_push_back(target.get(), json_pop_back(source.get(), "a")), 1);
    EXPECT_EQ(compact(source), "{}");
    EXPECT_EQ(compact(target), R"([{"b":1}])");
}
