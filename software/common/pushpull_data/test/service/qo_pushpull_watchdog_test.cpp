// What systemd's watchdog hears of the main thread, and when.
#include "qo_pushpull_watchdog.h"

#include <stdlib.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "log_capture.h"
#include "notify_socket.h"
#include "qo_pushpull_signal_gate.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<clockid_t> clocks;  // of the timers
bool no_timer = false;

}  // namespace

extern "C" {
int __real_timer_create(clockid_t clock, sigevent* notification, timer_t* timer);
int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* timer);

int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* timer) {
    clocks.push_back(clock);
    if (!no_timer) return __real_timer_create(clock, notification, timer);
    errno = EAGAIN;
    return -1;
}
}

namespace {

class Watchdog : public testing::Test {
protected:
    Watchdog() { clocks.clear(); }
    ~Watchdog() override {
        no_timer = false;
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
    }
    static void set_period(const std::string& microseconds) { setenv("WATCHDOG_USEC", microseconds.c_str(), 1); }

    /// The thread that is watched waits for a request, and nothing comes.
    void wait_for_reports(size_t count) {
        const QoSignalGate waiting(QoSignalGate::State::kWaiting);
        while (systemd_.told().size() < count) std::this_thread::yield();
    }

    QoNotifySocket systemd_;
    QoLogCapture log_;
};

}  // namespace

TEST_F(Watchdog, ThatNobodyAskedForReportsNothing) {
    const QoServiceWatchdog watchdog;
    qo_report_life();
    EXPECT_THAT(systemd_.told(), IsEmpty());
}

TEST_F(Watchdog, OfAnotherProcessReportsNothing) {
    set_period("8000000");
    setenv("WATCHDOG_PID", std::to_string(getppid()).c_str(), 1);
    const QoServiceWatchdog watchdog;
    qo_report_life();
    EXPECT_THAT(systemd_.told(), IsEmpty());
}

TEST_F(Watchdog, WithAnUnreadablePeriodReportsNothing) {
    set_period("soon");
    const QoServiceWatchdog watchdog;
    qo_report_life();
    EXPECT_THAT(systemd_.told(), IsEmpty());
}

TEST_F(Watchdog, IsToldAtMostOnceInAQuarterOfItsPeriod) {
    set_period("14400000000");  // four hours
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    const QoServiceWatchdog watchdog;
    for (int turn = 0; turn < 100; ++turn) qo_report_life();
    EXPECT_THAT(systemd_.told(), ElementsAre("WATCHDOG=1"));
}

TEST_F(Watchdog, IsToldAgainAfterAQuarterOfItsPeriod) {
    set_period("4000");
    const QoServiceWatchdog watchdog;
    while (systemd_.told().size() < 3) qo_report_life();
    EXPECT_THAT(systemd_.told(), Each("WATCHDOG=1"));
}

TEST_F(Watchdog, WithAPeriodBeyondAllMeasureIsToldOnce) {
    set_period("18446744073709551614");
    const QoServiceWatchdog watchdog;
    qo_report_life();
    qo_report_life();
    EXPECT_THAT(systemd_.told(), ElementsAre("WATCHDOG=1"));
}

TEST_F(Watchdog, IsNotToldByAnotherThread) {
    set_period("4000");
    const QoServiceWatchdog watchdog;
    std::thread([] { qo_report_life(); }).join();
    EXPECT_THAT(systemd_.told(), IsEmpty());
}

TEST_F(Watchdog, IsNotToldAfterItsEnd) {
    set_period("4000");
    { const QoServiceWatchdog watchdog; }
    qo_report_life();
    EXPECT_THAT(systemd_.told(), IsEmpty());
}

// ---- the timer ----

TEST_F(Watchdog, IsToldWhileTheThreadWaitsForARequest) {
    set_period("4000");
    const QoServiceWatchdog watchdog;
    wait_for_reports(5);
    EXPECT_THAT(systemd_.told(), Each("WATCHDOG=1"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Watchdog, IsNotToldWhileTheThreadWorks) {
    set_period("4000");
    const QoServiceWatchdog watchdog;
    static std::atomic<int> expiries = 0;
    expiries = 0;
    wait_for_reports(1);
    struct sigaction reporting {};
    sigaction(qo_life_timer_signal(), nullptr, &reporting);
    static void (*const report)(int) = reporting.sa_handler;
    reporting.sa_handler = [](int number) {
        report(number);
        ++expiries;
    };
    sigaction(qo_life_timer_signal(), &reporting, nullptr);
    const QoSignalGate working(QoSignalGate::State::kWorking);
    const size_t before = systemd_.told().size();
    const int expired = expiries;
    while (expiries < expired + 20) std::this_thread::yield();
    EXPECT_EQ(systemd_.told().size(), before);
}

TEST_F(Watchdog, DoesNotDependOnTheWallClock) {
    set_period("4000");
    const QoServiceWatchdog watchdog;
    EXPECT_THAT(clocks, ElementsAre(CLOCK_MONOTONIC));
}

TEST_F(Watchdog, ThatNobodyAskedForHasNoTimer) {
    const QoServiceWatchdog watchdog;
    EXPECT_THAT(clocks, IsEmpty());
}

TEST_F(Watchdog, WithoutATimerSaysSoAndReportsFromTheWorkOfTheThread) {
    set_period("4000");
    no_timer = true;
    const QoServiceWatchdog watchdog;
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR,
                                                    "PushPullData: no timer for the reports to systemd's "
                                                    "watchdog: Resource temporarily unavailable"}));
    qo_report_life();
    EXPECT_THAT(systemd_.told(), ElementsAre("WATCHDOG=1"));
}
