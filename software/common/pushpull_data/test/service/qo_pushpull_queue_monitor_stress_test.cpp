// Components come and go while the monitor looks at their queues without a pause.
#include <gtest/gtest.h>
#include <syslog.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "log_capture.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_scratch_queue.h"
#include "shell_capture.h"

namespace {

constexpr int kTurns = 100000;
constexpr int kTurnsBetweenClears = 5000;  // of the captured log
constexpr eQO_CMP_IDs_ kFirst = QO_CMPID_TESTPUBLISHER;
constexpr eQO_CMP_IDs_ kSecond = QO_CMPID_BASE_SIMULATOR;

}  // namespace

TEST(QueueMonitorStress, HundredThousandRegistrationsWhileTheMonitorPollsAtItsFastest) {
    QoLogCapture log;
    const QoShellCapture shell;
    const QoScratchQueue roomy("/roomy", 2, 16);
    const QoScratchQueue full("/full", 2, 16);
    full.fill();
    QoQueueMonitorSettings settings;
    settings.poll = std::chrono::milliseconds(0);
    QoPushPullQueueMonitor monitor(settings);
    std::atomic<bool> done{false};
    std::thread statistics([&] {
        while (!done) {
            monitor.incQueueStats(roomy.descriptor());
            monitor.incQueueSaves(kSecond);
            monitor.getQueueData();
            std::this_thread::yield();
        }
    });
    bool looked = false;
    for (int turn = 0; turn < kTurns; ++turn) {
        monitor.addQueue("/roomy", kFirst, roomy.descriptor());
        monitor.addQueue("/full", kSecond, full.descriptor());
        monitor.removeQueue(roomy.descriptor());
        monitor.removeQueue(full.descriptor());
        if (turn % kTurnsBetweenClears != 0) continue;
        looked = looked || log.contains(LOG_WARNING, "QoPushPullQueueMonitor: A queue is full");
        log.clear();
    }
    done = true;
    statistics.join();
    EXPECT_TRUE(looked) << "the monitor has met the full queue on the way";
    EXPECT_EQ(monitor.getQueueNames(), "");
    EXPECT_TRUE(shell.commands().empty());
}
