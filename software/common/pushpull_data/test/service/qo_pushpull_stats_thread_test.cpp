// Rows that are written while the main thread counts, registers and starts anew.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "log_capture.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_stats.h"
#include "qo_resource_mgr.h"
#include "scratch_directory.h"
#include "shell_capture.h"

namespace {

/// A timer's thread: calls back as fast as it can.
class Caller {
public:
    explicit Caller(QoPushPullStats* stats)
        : thread_([this, stats] {
              sigval value{};
              value.sival_ptr = stats;
              while (!stop_) {
                  QoPushPullStats::TimerCallBack(value);
                  ++calls_;
              }
          }) {}
    ~Caller() {
        stop_ = true;
        thread_.join();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
    int calls() const { return calls_; }

private:
    std::atomic<bool> stop_{false};
    std::atomic<int> calls_{0};
    std::thread thread_;  // last: it uses the others
};

class StatisticsThreads : public testing::Test {
protected:
    StatisticsThreads() { std::filesystem::create_directory(scratch_.file("ppstat")); }

    std::unique_ptr<QoPushPullStats> make_stats() {
        QoStatsSettings settings;
        settings.interval_file = scratch_.file("no_interval");
        settings.log_directory = scratch_.file("ppstat");
        return std::make_unique<QoPushPullStats>(settings);
    }

    const QoScratchDirectory scratch_;
    QoLogCapture log_;
    QoShellCapture shell_;
};

TEST_F(StatisticsThreads, RowsAreWholeWhileTheMainThreadCountsRegistersAndStartsAnew) {
    const auto stats = make_stats();
    auto registry = std::make_shared<ResourceMgr>();
    stats->init_stats_collection(registry);
    {
        const Caller caller(stats.get());
        for (int i = 0; i < 2000 || caller.calls() < 20; ++i) {
            const mqd_t queue = 900 + i % 7;
            registry->monitor().addQueue("/queue", QO_CMPID_DEMO, queue);
            stats->set_header_flag();
            stats->inc_registers();
            stats->inc_publishes();
            stats->inc_publish_time(0.001);
            stats->inc_gets();
            stats->inc_read_time(0.001);
            stats->inc_saves();
            stats->inc_clears();
            stats->inc_subscriptions();
            stats->inc_unregisters();
            stats->inc_active_time(0.001);
            registry->monitor().incQueueStats(queue);
            registry->monitor().incQueueSaves(QO_CMPID_DEMO);
            registry->monitor().removeQueue(queue);
            if (i % 100 == 99) {
                registry = std::make_shared<ResourceMgr>();
                stats->init_stats_collection(registry);
            }
        }
    }
    std::istringstream text(scratch_.read("ppstat/ppstats.csv"));
    int rows = 0;
    for (std::string line; std::getline(text, line); ++rows)
        EXPECT_GE(std::count(line.begin(), line.end(), ','), 15) << line;
    EXPECT_GE(rows, 20);
}

TEST_F(StatisticsThreads, StatisticsMayEndWhileTheirTimerCallsBack) {
    for (int round = 0; round < 20; ++round) {
        auto stats = make_stats();
        stats->init_stats_collection(std::make_shared<ResourceMgr>());
        const Caller caller(stats.get());
        while (caller.calls() < 3) std::this_thread::yield();
        stats.reset();
        const int calls = caller.calls();
        while (caller.calls() < calls + 3) std::this_thread::yield();
    }
}

}  // namespace
