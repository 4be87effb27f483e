// The save timer at its production times, by the real clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "qo_pushpull_files.h"
#include "qo_store_fixture.h"

namespace {

using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr seconds kLate{15};  // a loaded machine may be

class SaveTimerByTheClock : public QoStoreTest {
protected:
    void change(int value) { ASSERT_EQ(publish(R"({"a":)" + std::to_string(value) + "}"), 0); }

    /// When the saved file appears or changes; the end of time when it does not before `deadline`.
    Clock::time_point next_save(const std::string& before, Clock::time_point deadline) {
        while (Clock::now() < deadline) {
            if (scratch_.read(QO_SAVED_TREE_FILE) != before) return Clock::now();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return Clock::time_point::max();
    }
};

TEST_F(SaveTimerByTheClock, OneChangeIsSavedAfter5Seconds) {
    load(R"({"a":0})");
    const auto changed = Clock::now();
    change(1);
    const auto saved = next_save("", changed + seconds(30));
    EXPECT_GE(saved - changed, seconds(5));
    EXPECT_LT(saved - changed, seconds(5) + kLate);
}

TEST_F(SaveTimerByTheClock, TenPublishesOneSecondApartSaveOnceAfter35Seconds) {
    load(R"({"a":0})");
    const auto first = Clock::now();
    for (int value = 1; value <= 10; ++value) {
        std::this_thread::sleep_until(first + seconds(value - 1));
        change(value);
    }
    const auto saved = next_save("", first + seconds(60));
    EXPECT_GE(saved - first, seconds(35));
    EXPECT_LT(saved - first, seconds(35) + kLate);
    const std::string text = scratch_.read(QO_SAVED_TREE_FILE);
    EXPECT_EQ(json_as_int(qo_json_find(qo_json_parse(text).get(), "a")), 10);
    EXPECT_EQ(next_save(text, Clock::now() + seconds(8)), Clock::time_point::max()) << "saved twice";
}

}  // namespace
