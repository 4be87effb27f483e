// What systemd's watchdog hears of the main thread, and when.
#include "qo_pushpull_watchdog.h"

#include <stdlib.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

using std::chrono::milliseconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> notified;

}  // namespace

extern "C" int __wrap_sd_notify(int unset_environment, const char* state);

extern "C" int __wrap_sd_notify(int, const char* state) {
    notified.emplace_back(state);
    return 1;
}

namespace {

class Watchdog : public testing::Test {
protected:
    Watchdog() { notified.clear(); }
    ~Watchdog() override {
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
    }
    static void set_period(const std::string& microseconds) { setenv("WATCHDOG_USEC", microseconds.c_str(), 1); }
};

}  // namespace

TEST_F(Watchdog, ThatNobodyAskedForReportsNothing) {
    QoServiceWatchdog watchdog;
    qo_report_life();
    EXPECT_EQ(watchdog.longest_wait(), std::nullopt);
    EXPECT_THAT(notified, IsEmpty());
}

TEST_F(Watchdog, OfAnotherProcessReportsNothing) {
    set_period("8000000");
    setenv("WATCHDOG_PID", std::to_string(getppid()).c_str(), 1);
    QoServiceWatchdog watchdog;
    qo_report_life();
    EXPECT_EQ(watchdog.longest_wait(), std::nullopt);
    EXPECT_THAT(notified, IsEmpty());
}

TEST_F(Watchdog, WithAnUnreadablePeriodReportsNothing) {
    set_period("soon");
    QoServiceWatchdog watchdog;
    qo_report_life();
    EXPECT_THAT(notified, IsEmpty());
}

TEST_F(Watchdog, IsToldAtMostOnceInAQuarterOfItsPeriod) {
    set_period("14400000000");  // four hours
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    QoServiceWatchdog watchdog;
    EXPECT_EQ(watchdog.longest_wait(), std::chrono::hours(1));
    for (int turn = 0; turn < 100; ++turn) qo_report_life();
    EXPECT_THAT(notified, ElementsAre("WATCHDOG=1"));
}

TEST_F(Watchdog, IsToldAgainAfterAQuarterOfItsPeriod) {
    set_period("4000");
    QoServiceWatchdog watchdog;
    EXPECT_EQ(watchdog.longest_wait(), milliseconds(1));
    while (notified.size() < 3) qo_report_life();
    EXPECT_THAT(notified, Each("WATCHDOG=1"));
}

TEST_F(Watchdog, WithAPeriodBeyondAllMeasureIsToldOnce) {
    set_period("18446744073709551614");
    QoServiceWatchdog watchdog;
    qo_report_life();
    qo_report_life();
    EXPECT_THAT(notified, ElementsAre("WATCHDOG=1"));
}

TEST_F(Watchdog, IsNotToldByAnotherThread) {
    set_period("4000");
    QoServiceWatchdog watchdog;
    std::thread([] { qo_report_life(); }).join();
    EXPECT_THAT(notified, IsEmpty());
}

TEST_F(Watchdog, IsNotToldAfterItsEnd) {
    set_period("4000");
    { const QoServiceWatchdog watchdog; }
    qo_report_life();
    EXPECT_THAT(notified, IsEmpty());
}
