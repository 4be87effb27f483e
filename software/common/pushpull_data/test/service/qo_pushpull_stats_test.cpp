// The statistics: what is counted, how a row and its header are written, and the timer behind them. Time stands
// still unless a test moves it.
#include "qo_pushpull_stats.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "log_capture.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_resource_mgr.h"
#include "scratch_directory.h"
#include "shell_capture.h"
#include "statistics_file.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kHeader[] =
    "UTC Time, Percent Active, Total Publishes, Publishes, Avg Pub Time, Total Reads, Reads, Avg Read Time, Total "
    "Saves, Saves, Total Clears, Clears, Subscriptions, Registers, Unregisters,";
constexpr time_t kMorning = 1767258000;   // 2026-01-01 09:00:00 UTC
constexpr time_t kMidnight = 1767312000;  // the next one
constexpr int32_t kLargest = std::numeric_limits<int32_t>::max();

double monotonic_now = 0;  // seconds

/// The one timer that the statistics have.
struct FakeTimer {
    bool refuse_create = false;
    bool refuse_set = false;
    std::optional<sigevent> created;
    clockid_t clock = -1;
    std::vector<itimerspec> set;
    int deleted = 0;
};
FakeTimer timer;

}  // namespace

extern "C" {
int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* created);
int __wrap_timer_settime(timer_t handle, int flags, const itimerspec* time, itimerspec* former);
int __wrap_timer_delete(timer_t handle);

int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* created) {
    if (timer.refuse_create) {
        errno = EAGAIN;
        return -1;
    }
    timer.clock = clock;
    timer.created = *notification;
    *created = &timer;
    return 0;
}
int __wrap_timer_settime(timer_t handle, int flags, const itimerspec* time, itimerspec*) {
    EXPECT_EQ(handle, &timer);
    EXPECT_EQ(flags, 0);
    timer.set.push_back(*time);
    if (timer.refuse_set || time->it_value.tv_sec < 0) {
        errno = EINVAL;
        return -1;
    }
    return 0;
}
int __wrap_timer_delete(timer_t handle) {
    EXPECT_EQ(handle, &timer);
    ++timer.deleted;
    return 0;
}
}

namespace {

class Statistics : public testing::Test {
protected:
    Statistics() {
        std::filesystem::create_directory(scratch_.file("ppstat"));
        monotonic_now = 1000;
        timer = FakeTimer();
        make_stats();
        log_.clear();
    }

    void make_stats() {
        QoStatsSettings settings;
        settings.interval_file = scratch_.file("pushpull_stats.cfg");
        settings.log_directory = scratch_.file("ppstat");
        settings.clock = [this] {
            if (clock_throws_) throw std::runtime_error("no time");
            return now_;
        };
        settings.monotonic_clock = [] { return monotonic_now; };
        stats_ = std::make_unique<QoPushPullStats>(settings);
    }
    void start() {
        stats_->init_stats_collection(registry_);
        log_.clear();
    }
    /// Queues that exist in the list only: their depths count as 0.
    void monitor(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            registry_->monitor().addQueue(name, static_cast<eQO_CMP_IDs_>(2000 + queues_), 900 + queues_);
            ++queues_;
        }
    }

    std::string file() const { return scratch_.read("ppstat/ppstats.csv"); }
    std::vector<std::string> lines() const { return qo_lines(file()); }
    /// Writes a row ten seconds after the one before, and gives it back.
    std::string row() {
        monotonic_now += 10;
        stats_->save_stats_data();
        const std::vector<std::string> all = lines();
        return all.empty() ? "" : all.back();
    }
    /// The same, column by column.
    std::map<std::string, std::string> columns() {
        row();
        return qo_last_statistics_row(file());
    }

    const QoScratchDirectory scratch_;
    time_t now_ = kMorning;
    bool clock_throws_ = false;
    int queues_ = 0;
    QoLogCapture log_;
    QoShellCapture shell_;
    std::shared_ptr<ResourceMgr> registry_ = std::make_shared<ResourceMgr>();
    std::unique_ptr<QoPushPullStats> stats_;
};

// ---- header ----

class StatisticsHeader : public Statistics {};

TEST_F(StatisticsHeader, WithThreeQueuesNamesFourColumnsOfEach) {
    monitor({"A", "B", "C"});
    start();
    const std::string values = row();
    EXPECT_EQ(lines().front(), std::string(kHeader) +
                                   "A(Total),A(Saves),A(Max),A(Avg),B(Total),B(Saves),B(Max),B(Avg),C(Total),C(Saves),"
                                   "C(Max),C(Avg)");
    EXPECT_THAT(values, EndsWith(", 0,0,0,0.000000,0,0,0,0.000000,0,0,0,0.000000"));
    EXPECT_THAT(file(), EndsWith("\n"));
}

TEST_F(StatisticsHeader, WithoutQueuesEndsWithTheComma) {
    start();
    row();
    EXPECT_EQ(lines().front(), kHeader);
}

TEST_F(StatisticsHeader, IsWrittenOncePerFile) {
    start();
    for (int i = 0; i < 3; ++i) row();
    std::vector<std::string> rows = lines();
    ASSERT_EQ(rows.size(), 4U);
    rows.erase(rows.begin());
    EXPECT_THAT(rows, testing::Each(StartsWith("Jan 01 ")));
}

TEST_F(StatisticsHeader, AfterARegisterIsRebuiltForTheNextFileAndAFileBegunKeepsItsOwn) {
    monitor({"A"});
    start();
    row();
    monitor({"B"});
    stats_->set_header_flag();
    EXPECT_THAT(row(), EndsWith("0, 0,0,0,0.000000,0,0,0,0.000000"));
    EXPECT_EQ(lines().front(), std::string(kHeader) + "A(Total),A(Saves),A(Max),A(Avg)");
    now_ = kMidnight;
    row();
    EXPECT_EQ(lines().front(),
              std::string(kHeader) + "A(Total),A(Saves),A(Max),A(Avg),B(Total),B(Saves),B(Max),B(Avg)");
    EXPECT_EQ(lines().size(), 2U);
}

TEST_F(StatisticsHeader, WithoutTheFlagStaysTheFirstOneInTheNextFileToo) {
    monitor({"A"});
    start();
    row();
    monitor({"B"});
    now_ = kMidnight;
    row();
    EXPECT_EQ(lines().front(), std::string(kHeader) + "A(Total),A(Saves),A(Max),A(Avg)");
}

TEST_F(StatisticsHeader, MakesTheDirectoryByTheShellAtTheFirstRow) {
    std::filesystem::remove_all(scratch_.file("ppstat"));
    start();
    EXPECT_THAT(shell_.commands(), IsEmpty());
    row();
    // Recorded, not run: the file that is to be begun asks for its directory once more.
    const std::string attempt = "mkdir " + scratch_.file("ppstat");
    EXPECT_THAT(shell_.commands(), ElementsAre(attempt, attempt));
}

// ---- rows ----

class StatisticsRow : public Statistics {
protected:
    void publish(double seconds) {
        stats_->inc_publishes();
        stats_->inc_publish_time(seconds);
    }
    void read(double seconds) {
        stats_->inc_gets();
        stats_->inc_read_time(seconds);
    }
};

TEST_F(StatisticsRow, HasEveryColumnInItsOrderAndFormat) {
    monitor({"A", "B"});
    start();
    publish(0.001);
    publish(0.002);
    for (int i = 0; i < 3; ++i) read(0.004);
    for (int i = 0; i < 4; ++i) stats_->inc_saves();
    for (int i = 0; i < 5; ++i) stats_->inc_clears();
    for (int i = 0; i < 6; ++i) stats_->inc_subscriptions();
    for (int i = 0; i < 7; ++i) stats_->inc_registers();
    for (int i = 0; i < 8; ++i) stats_->inc_unregisters();
    stats_->inc_active_time(2);
    stats_->inc_active_time(0.5);
    registry_->monitor().incQueueStats(900);
    registry_->monitor().incQueueStats(900);
    registry_->monitor().incQueueSaves(static_cast<eQO_CMP_IDs_>(2001));
    EXPECT_EQ(row(),
              "Jan 01 09:00:00, 25.000000, 2, 2, 1.500000, 3, 3, 4.000000, 4, 4, 5, 5, 6, 7, 8, "
              "2,0,0,0.000000,0,1,0,0.000000");
}

TEST_F(StatisticsRow, OfAnIntervalWithoutPublishesAndReadsPrintsZeroAveragesInsteadOfDividing) {
    start();
    const auto all = columns();
    EXPECT_EQ(all.at("Avg Pub Time"), "0.000000");
    EXPECT_EQ(all.at("Avg Read Time"), "0.000000");
    EXPECT_EQ(all.at("Percent Active"), "0.000000");
}

TEST_F(StatisticsRow, InNoTimeAtAllPrintsZeroPercent) {
    start();
    stats_->inc_active_time(1);
    stats_->save_stats_data();
    EXPECT_EQ(qo_statistics_fields(lines().back()).at(1), "0.000000");
}

TEST_F(StatisticsRow, TotalsKeepGrowingWhileTheIntervalCountsRestartAtZero) {
    start();
    publish(0.001);
    read(0.001);
    stats_->inc_saves();
    stats_->inc_clears();
    stats_->inc_subscriptions();
    stats_->inc_registers();
    stats_->inc_unregisters();
    stats_->inc_active_time(1);
    row();
    publish(0.003);
    EXPECT_EQ(row(), "Jan 01 09:00:00, 0.000000, 2, 1, 3.000000, 1, 0, 0.000000, 1, 0, 1, 0, 0, 0, 0, ");
    EXPECT_EQ(row(), "Jan 01 09:00:00, 0.000000, 2, 0, 0.000000, 1, 0, 0.000000, 1, 0, 1, 0, 0, 0, 0, ");
}

TEST_F(StatisticsRow, AverageReadTimeKeepsTheTimeOfEarlierIntervals) {
    start();
    read(0.010);
    read(0.010);
    EXPECT_EQ(columns().at("Avg Read Time"), "10.000000");
    read(0.010);
    EXPECT_EQ(columns().at("Avg Read Time"), "30.000000");
    row();
    read(0.010);
    EXPECT_EQ(columns().at("Avg Read Time"), "40.000000");
}

TEST_F(StatisticsRow, PercentActiveIsOfTheTimeSinceTheRowBefore) {
    start();
    stats_->inc_active_time(5);
    EXPECT_EQ(columns().at("Percent Active"), "50.000000");
    stats_->inc_active_time(1);
    EXPECT_EQ(columns().at("Percent Active"), "10.000000");
}

TEST_F(StatisticsRow, QueueValuesRestartAtZero) {
    monitor({"A"});
    start();
    registry_->monitor().incQueueStats(900);
    EXPECT_THAT(row(), EndsWith(", 1,0,0,0.000000"));
    EXPECT_THAT(row(), EndsWith(", 0,0,0,0.000000"));
}

// The counters are the same as those of the queues.
TEST(Counter, StaysAtTheLargestNumber) {
    int32_t count = kLargest - 1;
    qo_count(count, 5);
    EXPECT_EQ(count, kLargest);
    qo_count(count);
    EXPECT_EQ(count, kLargest);
}

TEST_F(StatisticsRow, OfAnotherRegistryReportsItsQueues) {
    monitor({"A"});
    start();
    row();
    const std::weak_ptr<ResourceMgr> former = registry_;
    registry_ = std::make_shared<ResourceMgr>();
    monitor({"B", "C"});
    start();
    EXPECT_TRUE(former.expired());
    EXPECT_THAT(row(), EndsWith(", 0,0,0,0.000000,0,0,0,0.000000"));
}

TEST_F(StatisticsRow, OfAnotherRegistryGoesOnWithTheSameCountsFileAndTimer) {
    start();
    publish(0.001);
    row();
    start();
    publish(0.001);
    EXPECT_EQ(columns().at("Total Publishes"), "2");
    EXPECT_EQ(lines().size(), 3U);
    EXPECT_EQ(timer.set.size(), 1U);
}

TEST_F(StatisticsRow, ThatFailsIsReportedAndLeavesTheCountersAsTheyWere) {
    start();
    publish(0.001);
    stats_->inc_saves();
    row();
    publish(0.002);
    stats_->inc_active_time(1);
    clock_throws_ = true;
    row();
    EXPECT_THAT(log_.lines_above_debug(),
                ElementsAre(QoLogLine{LOG_ERR, "PushPull Stats: Exception during data logging: no time"}));
    clock_throws_ = false;
    const auto all = columns();
    EXPECT_EQ(lines().size(), 3U);
    EXPECT_EQ(all.at("Total Publishes"), "2");
    EXPECT_EQ(all.at("Publishes"), "1");
    EXPECT_EQ(all.at("Total Saves"), "1");
    EXPECT_EQ(all.at("Avg Pub Time"), "2.000000");
    EXPECT_EQ(all.at("Percent Active"), "5.000000");
}

TEST_F(StatisticsRow, OfANewDayComesInANewFileWithTheHeader) {
    start();
    row();
    now_ = kMidnight;
    row();
    EXPECT_EQ(lines().size(), 2U);
    EXPECT_TRUE(scratch_.has("ppstat/1767312000_ppstats.csv.gz"));
}

// ---- interval and timer ----

class StatisticsInterval : public Statistics {
protected:
    /// First expiry and period, which are the same.
    static time_t seconds() {
        EXPECT_EQ(timer.set.size(), 1U);
        const itimerspec& period = timer.set.at(0);
        EXPECT_EQ(period.it_value.tv_nsec, 0);
        EXPECT_EQ(period.it_interval.tv_nsec, 0);
        EXPECT_EQ(period.it_value.tv_sec, period.it_interval.tv_sec);
        return period.it_value.tv_sec;
    }
    time_t seconds_with(const std::string& text) {
        scratch_.write("pushpull_stats.cfg", text);
        start();
        return seconds();
    }
};

TEST_F(StatisticsInterval, WithoutTheConfigurationFileTheFirstRowComesAfter3600Seconds) {
    start();
    EXPECT_EQ(seconds(), 3600);
    EXPECT_EQ(timer.clock, CLOCK_MONOTONIC);
    ASSERT_TRUE(timer.created);
    EXPECT_EQ(timer.created->sigev_notify, SIGEV_THREAD);
    EXPECT_EQ(timer.created->sigev_notify_function, &QoPushPullStats::TimerCallBack);
    EXPECT_EQ(timer.created->sigev_value.sival_ptr, stats_.get());
}

TEST_F(StatisticsInterval, AFileContaining60AndALineFeedGivesARowEvery60Seconds) {
    EXPECT_EQ(seconds_with("60\n"), 60);
}

TEST_F(StatisticsInterval, LeadingWhiteSpaceIsSkippedAndTheFirstNonDigitEndsTheNumber) {
    EXPECT_EQ(seconds_with(" \t\n 15 minutes"), 15);
}

TEST_F(StatisticsInterval, OfTextThatIsNoNumberIsZeroWhichArmsNothing) { EXPECT_EQ(seconds_with("abc"), 0); }

TEST_F(StatisticsInterval, OfAnEmptyFileIsZeroWhichArmsNothing) { EXPECT_EQ(seconds_with(""), 0); }

TEST_F(StatisticsInterval, OfZeroArmsNothingButCountsOn) {
    EXPECT_EQ(seconds_with("0"), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
    stats_->inc_publishes();
    EXPECT_EQ(columns().at("Publishes"), "1");
}

TEST_F(StatisticsInterval, ThatIsHugeStaysTheLongestThereIs) {
    EXPECT_EQ(seconds_with("99999999999999999999999999"), kLargest);
}

TEST_F(StatisticsInterval, JustBeyond32BitsIsNotAShortOne) { EXPECT_EQ(seconds_with("4294967297"), kLargest); }

TEST_F(StatisticsInterval, ThatIsNegativeIsRefusedByTheTimer) {
    scratch_.write("pushpull_stats.cfg", "-5");
    stats_->init_stats_collection(registry_);
    EXPECT_TRUE(log_.contains(LOG_ERR, "PushPull Stats: Cannot set time in the timer!"));
    EXPECT_EQ(timer.deleted, 1);
}

TEST_F(StatisticsInterval, OfADirectoryOfThatNameStays3600Seconds) {
    std::filesystem::create_directory(scratch_.file("pushpull_stats.cfg"));
    start();
    EXPECT_EQ(seconds(), 3600);
}

class StatisticsTimer : public Statistics {};

TEST_F(StatisticsTimer, ThatCannotBeCreatedIsReportedAndCountingGoesOn) {
    timer.refuse_create = true;
    stats_->init_stats_collection(registry_);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "PushPull Stats: Failed to create timer to save data!"}));
    stats_->inc_publishes();
    EXPECT_EQ(columns().at("Publishes"), "1");
    stats_.reset();
    EXPECT_EQ(timer.deleted, 0);
}

TEST_F(StatisticsTimer, ThatCannotBeArmedIsReportedAndDeletedOnce) {
    timer.refuse_set = true;
    stats_->init_stats_collection(registry_);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "PushPull Stats: Cannot set time in the timer!"}));
    EXPECT_EQ(timer.deleted, 1);
    stats_.reset();
    EXPECT_EQ(timer.deleted, 1);
}

TEST_F(StatisticsTimer, IsDeletedWithTheStatistics) {
    start();
    stats_.reset();
    EXPECT_EQ(timer.deleted, 1);
}

TEST_F(StatisticsTimer, ExpiryWritesARow) {
    start();
    ASSERT_TRUE(timer.created);
    timer.created->sigev_notify_function(timer.created->sigev_value);
    EXPECT_EQ(lines().size(), 2U);
}

TEST_F(StatisticsTimer, CallbackWithANullPointerIsReported) {
    QoPushPullStats::TimerCallBack({.sival_ptr = nullptr});
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "PushPull Stats: Failed to call save function!"}));
}

TEST_F(StatisticsTimer, CallbackAfterTheEndOfItsStatisticsTouchesNothing) {
    start();
    const sigval value = timer.created->sigev_value;
    stats_.reset();
    QoPushPullStats::TimerCallBack(value);
    EXPECT_EQ(file(), "");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(StatisticsTimer, TheEndReleasesTheRegistry) {
    start();
    const std::weak_ptr<ResourceMgr> registry = registry_;
    registry_.reset();
    EXPECT_FALSE(registry.expired());
    stats_.reset();
    EXPECT_TRUE(registry.expired());
}

}  // namespace
