// No operation costs time in proportion to the square of what a message can make large: each of these takes a small
// part of a second, and would take minutes.
#include <gtest/gtest.h>

#include <ctime>

#include "json_test_support.h"

namespace {

constexpr int kMany = 100'000;
constexpr double kLimit = 5;  // seconds

/// Processor time, which does not count what else the machine does.
double seconds_used() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

class JsonCost : public testing::Test {
protected:
    ~JsonCost() override { EXPECT_LT(seconds_used() - start_, kLimit); }

    const double start_ = seconds_used();
};

std::string member(int number) { return "member" + std::to_string(number); }

/// An object whose members have the names that `name_of(0)` to `name_of(kMany - 1)` give.
template <typename NameOf>
Json object_of(NameOf name_of) {
    std::string text = "{";
    for (int i = 0; i < kMany; ++i) text += '"' + std::string(name_of(i)) + "\":" + std::to_string(i) + ',';
    text.back() = '}';
    return parse(text);
}

}  // namespace

TEST_F(JsonCost, FindingAndPushingByTurns) {
    const Json object(json_new(JSON_NODE));
    for (int i = 0; i < kMany; ++i) {
        EXPECT_EQ(json_find(object.get(), member(i).c_str()), nullptr);
        ASSERT_EQ(json_push_back(object.get(), json_new_i(member(i).c_str(), i)), 1);
    }
}

TEST_F(JsonCost, FindingAndPushingTheSameNameByTurns) {
    const Json object = object_of([](int) { return "same"; });
    for (int i = 0; i < kMany; ++i) {
        EXPECT_EQ(json_as_int(json_find(object.get(), "same")), 0);
        ASSERT_EQ(json_push_back(object.get(), json_new_i("same", i)), 1);
    }
}

TEST_F(JsonCost, FindingEveryOneOfManyMembers) {
    const Json object = object_of(member);
    for (int i = 0; i < kMany; ++i) EXPECT_EQ(json_as_int(json_find(object.get(), member(i).c_str())), i);
}

TEST_F(JsonCost, RenamingAndFindingByTurns) {
    const Json object = object_of(member);
    for (int i = 0; i < kMany; ++i) {
        json_set_name(json_at(object.get(), static_cast<size_t>(i)), ("renamed" + std::to_string(i)).c_str());
        EXPECT_EQ(json_find(object.get(), member(i).c_str()), nullptr);
    }
}

TEST_F(JsonCost, TakingMembersFromTheEndWhileFinding) {
    const Json object = object_of([](int i) { return member(i % 2); });
    for (size_t left = kMany; left > 2; --left) {
        EXPECT_EQ(json_as_int(json_find(object.get(), "member1")), 1);
        const Json last(json_pop_back_at(object.get(), left - 1));
        ASSERT_NE(last, nullptr);
    }
}

TEST_F(JsonCost, ErasingEverySecondMember) {
    const Json object = object_of(member);
    const auto is_odd = [](const JSONNODE* child, void*) { return static_cast<int>(json_as_int(child) % 2); };
    EXPECT_EQ(json_erase_if(object.get(), is_odd, nullptr), static_cast<size_t>(kMany / 2));
}

TEST_F(JsonCost, InsertingCopiesOfManyMembers) {
    const Json source = object_of(member);
    const Json target = object_of(member);
    ASSERT_NE(json_find(target.get(), "member1"), nullptr);
    ASSERT_NE(json_insert_multi(target.get(), json_begin(target.get()) + kMany / 2, json_begin(source.get()),
                                json_end(source.get())),
              nullptr);
    EXPECT_EQ(json_as_int(json_find(target.get(), "member99999")), kMany - 1);
}

TEST_F(JsonCost, ComparingNumbersOfAMillionDigits) {
    const Json left = parse("[0." + std::string(1'000'000, '3') + ",1e-" + std::string(1'000'000, '9') + "]");
    const Json right = parse("[0." + std::string(1'000'000, '3') + "0,10e-1" + std::string(1'000'000, '0') + "]");
    EXPECT_EQ(json_equal(left.get(), right.get()), 1);
    EXPECT_EQ(json_as_int(json_at(left.get(), 1)), 0);
    EXPECT_EQ(json_as_float(json_at(left.get(), 1)), 0.0);
}
