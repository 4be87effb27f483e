// What the header allows several threads to do with one tree at once; for the thread sanitizer.
#include <gtest/gtest.h>

#include <thread>

#include "json_test_support.h"

namespace {

constexpr int kMembers = 1000;
constexpr int kRounds = 20;

Json object_of_members() {
    Json object(json_new(JSON_NODE));
    for (int i = 0; i < kMembers; ++i) json_push_back(object.get(), json_new_i(std::to_string(i).c_str(), i));
    return object;
}

}  // namespace

TEST(JsonThreads, OneSearchesWhileOthersCopyWriteAndCompare) {
    for (int round = 0; round < kRounds; ++round) {
        const Json object = object_of_members();  // new, so that the search builds its index
        std::thread searching([&] { EXPECT_EQ(json_as_int(json_find(object.get(), "999")), 999); });
        std::thread copying([&] { EXPECT_EQ(json_size(Json(json_duplicate(object.get())).get()), size_t{kMembers}); });
        std::thread writing([&] { EXPECT_EQ(compact(object).substr(0, 7), R"({"0":0,)"); });
        std::thread comparing([&] { EXPECT_EQ(json_equal(object.get(), Json(json_new(JSON_NODE)).get()), 0); });
        std::thread scanning([&] { EXPECT_EQ(json_scan_n(object.get(), 0, "998", 3), 998U); });
        std::thread taking([&] {
            const auto all = [](const JSONNODE*) { return JSON_TAKE_CHOSEN; };
            EXPECT_EQ(QoJsonSnapshot(object.get(), all).type(), JSON_NODE);
        });
        for (std::thread* thread : {&searching, &copying, &writing, &comparing, &scanning, &taking}) thread->join();
    }
}

TEST(JsonThreads, SeveralSearchDifferentNodesOfOneTree) {
    const Json tree(json_new(JSON_ARRAY));
    for (int i = 0; i < 2; ++i) ASSERT_EQ(json_push_back(tree.get(), object_of_members().release()), 1);
    const auto search = [&tree](size_t position) {
        EXPECT_EQ(json_as_int(json_find(json_at(tree.get(), position), "500")), 500);
    };
    std::thread first(search, 0);
    std::thread second(search, 1);
    first.join();
    second.join();
}

TEST(JsonThreads, EachMayHaveTreesOfItsOwn) {
    const auto work = [] {
        for (int round = 0; round < kRounds; ++round) {
            const Json tree = parse(compact(object_of_members()));
            EXPECT_EQ(json_as_int(json_find(tree.get(), "7")), 7);
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
}
