// The first child of a name, in objects of every size and after every change.
#include <gtest/gtest.h>

#include <random>

#include "json_test_support.h"

using namespace std::string_literals;

namespace {

std::string member(int number) { return "member" + std::to_string(number); }

/// An object of `count` members whose values are their positions.
Json members(int count) {
    Json object(json_new(JSON_NODE));
    for (int i = 0; i < count; ++i) EXPECT_EQ(json_push_back(object.get(), json_new_i(member(i).c_str(), i)), 1);
    return object;
}

/// What json_find must give: the first child of that name, by looking at each.
JSONNODE* scan(JSONNODE* object, const std::string& name) {
    for (JSONNODE_ITERATOR it = json_begin(object); it != json_end(object); ++it)
        if (name_of(*it) == name) return *it;
    return nullptr;
}

JSONNODE* find(JSONNODE* object, const std::string& name) { return json_find_n(object, name.data(), name.size()); }

/// Objects below and above the size from which on members are indexed.
class JsonFind : public testing::TestWithParam<int> {
protected:
    Json object_ = members(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Sizes, JsonFind, testing::Values(4, 15, 16, 17, 1000));

}  // namespace

TEST_P(JsonFind, EveryMemberIsFound) {
    for (int i = 0; i < GetParam(); ++i)
        EXPECT_EQ(json_find(object_.get(), member(i).c_str()), json_at(object_.get(), static_cast<size_t>(i)));
    EXPECT_EQ(json_find(object_.get(), "member"), nullptr);
    EXPECT_EQ(json_find(object_.get(), ""), nullptr);
    EXPECT_EQ(json_find(object_.get(), "MEMBER0"), nullptr);
}

TEST_P(JsonFind, AMemberPushedAfterASearchIsFound) {
    EXPECT_EQ(json_find(object_.get(), "new"), nullptr);
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("new", 7)), 1);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "new")), 7);
}

TEST_P(JsonFind, TheFirstOfSeveralIsFound) {
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 100)), 1);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 1);
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 200)), 1);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 1);
}

TEST_P(JsonFind, ErasingTheFirstOfSeveralUncoversTheNext) {
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 100)), 1);
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 200)), 1);
    for (const int64_t expected : {1, 100, 200}) {
        const Json first(json_pop_back(object_.get(), "member1"));
        EXPECT_EQ(json_as_int(first.get()), expected);
    }
    EXPECT_EQ(json_find(object_.get(), "member1"), nullptr);
}

TEST_P(JsonFind, ErasingALaterOneOfSeveralKeepsTheFirst) {
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 100)), 1);
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 200)), 1);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 1);
    ASSERT_NE(json_erase(object_.get(), json_end(object_.get()) - 2), nullptr);
    json_delete(json_pop_back(object_.get(), "member1"));
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 200);
}

TEST_P(JsonFind, AMemberInsertedBeforeItsNamesakesIsFoundFirst) {
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member2")), 2);
    ASSERT_NE(json_insert(object_.get(), json_begin(object_.get()), json_new_i("member2", 100)), nullptr);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member2")), 100);
    ASSERT_NE(json_insert(object_.get(), json_begin(object_.get()) + 1, json_new_i("member2", 200)), nullptr);
    for (const int64_t expected : {100, 200, 2}) {
        const Json first(json_pop_back(object_.get(), "member2"));
        EXPECT_EQ(json_as_int(first.get()), expected);
    }
    EXPECT_EQ(json_find(object_.get(), "member2"), nullptr);
}

TEST_P(JsonFind, ARenamedMemberIsFoundUnderItsNewNameOnly) {
    JSONNODE* child = json_find(object_.get(), "member1");
    json_set_name(child, "renamed");
    EXPECT_EQ(json_find(object_.get(), "member1"), nullptr);
    EXPECT_EQ(json_find(object_.get(), "renamed"), child);
}

TEST_P(JsonFind, AMemberRenamedToALaterNameIsFoundFirst) {
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member3")), 3);
    json_set_name(json_at(object_.get(), 1), "member3");
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member3")), 1);
    json_set_name(json_at(object_.get(), 2), "member3");
    for (const int64_t expected : {1, 2, 3}) {
        const Json first(json_pop_back(object_.get(), "member3"));
        EXPECT_EQ(json_as_int(first.get()), expected);
    }
}

TEST_P(JsonFind, DeletedAndClearedMembersAreNotFound) {
    json_delete(json_find(object_.get(), "member0"));
    EXPECT_EQ(json_find(object_.get(), "member0"), nullptr);
    json_clear(object_.get());
    EXPECT_EQ(json_find(object_.get(), "member1"), nullptr);
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 5)), 1);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 5);
}

TEST_P(JsonFind, WhatEraseIfLeavesIsFound) {
    ASSERT_EQ(json_push_back(object_.get(), json_new_i("member1", 100)), 1);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 1);
    const auto is_one = [](const JSONNODE* child, void*) { return json_as_int(child) == 1 ? 1 : 0; };
    EXPECT_EQ(json_erase_if(object_.get(), is_one, nullptr), 1U);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member1")), 100);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "member2")), 2);
}

TEST_P(JsonFind, ADuplicateIsSearchedByItself) {
    EXPECT_NE(json_find(object_.get(), "member1"), nullptr);
    const Json copy(json_duplicate(object_.get()));
    json_delete(json_find(object_.get(), "member1"));
    EXPECT_EQ(json_find(copy.get(), "member1"), json_at(copy.get(), 1));
}

TEST_P(JsonFind, SetNReplacesWhatIsFound) {
    EXPECT_NE(json_find(object_.get(), "member1"), nullptr);
    const Json source = parse(R"({"other":1})");
    json_set_n(object_.get(), source.get());
    EXPECT_EQ(json_find(object_.get(), "member1"), nullptr);
    EXPECT_EQ(json_as_int(json_find(object_.get(), "other")), 1);
}

TEST_P(JsonFind, NamesWithNulBytesAreToldApart) {
    ASSERT_EQ(json_push_back(object_.get(), json_new_a_n("x\0y", 3, "1", 1)), 1);
    ASSERT_EQ(json_push_back(object_.get(), json_new_a_n("x", 1, "2", 1)), 1);
    EXPECT_EQ(text_of(json_find_n(object_.get(), "x\0y", 3)), "1");
    EXPECT_EQ(text_of(json_find(object_.get(), "x")), "2");
    EXPECT_EQ(json_find_n(object_.get(), "x\0z", 3), nullptr);
}

TEST(JsonFindRules, ArraysAndValuesHaveNoMembers) {
    const Json array(json_new(JSON_ARRAY));
    ASSERT_EQ(json_push_back(array.get(), json_new_i("a", 1)), 1);
    EXPECT_EQ(json_find(array.get(), "a"), nullptr);
    EXPECT_EQ(json_pop_back(array.get(), "a"), nullptr);
    EXPECT_EQ(json_find(parse("\"a\"").get(), "a"), nullptr);
}

TEST(JsonFindRules, TheEmptyNameIsAName) {
    const Json object = parse(R"({"a":1,"":2})");
    EXPECT_EQ(json_as_int(json_find(object.get(), "")), 2);
}

TEST(JsonFindRules, RandomChangesNeverConfuseASearch) {
    std::mt19937 random(20250101);  // NOLINT(cert-msc51-cpp): the same changes in every run
    const auto below = [&random](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
    const auto some_name = [&] { return "n" + std::to_string(below(40)); };
    const Json object = members(20);
    std::string previous;
    for (int step = 0; step < 20'000; ++step) {
        const size_t size = json_size(object.get());
        const size_t position = below(size + 1);
        switch (size < below(80) ? below(2) : below(7)) {  // around 40 members, now and then too few for an index
            case 0:
                json_push_back(object.get(), json_new_i(some_name().c_str(), step));
                break;
            case 1:
                json_insert(object.get(), json_begin(object.get()) + position, json_new_i(some_name().c_str(), step));
                break;
            case 2:
                json_erase(object.get(), json_begin(object.get()) + position);
                break;
            case 3:
                json_delete(json_pop_back(object.get(), some_name().c_str()));
                break;
            case 4:
                json_set_name(json_at(object.get(), position), some_name().c_str());
                break;
            case 5:
                json_delete(json_at(object.get(), position));
                break;
            default:
                json_delete(json_pop_back_at(object.get(), position));
                break;
        }
        // Some name, that of the step before again, and two that follow each other.
        const std::string name = some_name();
        const size_t begin = below(json_size(object.get()) + 1);
        for (const std::string& wanted : {name, previous, name_of(json_at(object.get(), begin)),
                                          name_of(json_at(object.get(), begin + 1)), previous})
            ASSERT_EQ(find(object.get(), wanted), scan(object.get(), wanted)) << "step " << step << ", " << wanted;
        previous = name;
    }
}
