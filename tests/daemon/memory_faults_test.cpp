// The service when memory runs short and stays short.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "component.h"
#include "faults.h"
#include "service_process.h"

namespace {

class MemoryShortage : public ServiceProcess {
protected:
    void SetUp() override {
        if (!QoFaults::kReachAllocations) GTEST_SKIP() << "a sanitizer has an allocator of its own";
        ServiceProcess::SetUp();
    }
};

/// Allocations of a start that succeeds.
uint64_t allocations_of_start(QoServiceProcess& service, QoFaults& faults) {
    faults.add({.calls = kQoAllocate, .first = kQoAlways});
    faults.arm();
    EXPECT_TRUE(service.start_and_wait());
    EXPECT_EQ(service.stop(), 0);
    const uint64_t all = faults.seen();
    faults.clear();
    return all;
}

// The first allocation is the C++ runtime's, which keeps it for what is thrown when there is no other memory.
constexpr uint64_t kReserve = 1;

TEST_F(MemoryShortage, FromTheVeryBeginningAbortsTheStart) {
    QoFaults faults(service());
    service().make_queue();
    faults.add({.calls = kQoAllocate, .last = kQoAlways});
    faults.arm();
    service().start();
    const std::optional<int> status = service().wait_for_end();
    ASSERT_TRUE(status);
    ASSERT_TRUE(WIFSIGNALED(*status)) << "status " << WEXITSTATUS(*status);
    EXPECT_EQ(WTERMSIG(*status), SIGABRT) << "a failure for systemd, too";
}

// By its status, or by what it tells systemd when an exception has to end it with status 0.
TEST_F(MemoryShortage, FromAnyPointOfTheStartOnEndsItSoThatItIsStartedAgain) {
    constexpr uint64_t kPoints = 40;
    QoFaults faults(service());
    service().make_queue();
    const uint64_t all = allocations_of_start(service(), faults);
    for (uint64_t point = 0; point < kPoints; ++point) {
        // Not the very last: those are of the answer to what the test asks.
        const uint64_t first = kReserve + all * point * 9 / 10 / kPoints;
        SCOPED_TRACE("from allocation " + std::to_string(first) + " of " + std::to_string(all));
        faults.add({.calls = kQoAllocate, .first = first, .last = kQoAlways});
        faults.arm();
        const size_t notifications = events().notifications().size();
        service().start();
        const std::optional<int> status = service().wait_for_end();
        faults.clear();
        ASSERT_TRUE(status);
        ASSERT_TRUE(WIFEXITED(*status)) << "signal " << WTERMSIG(*status);
        if (WEXITSTATUS(*status) == 0) {
            ASSERT_THAT(events().notifications(), testing::SizeIs(notifications + 1));
            EXPECT_EQ(events().notifications().back(), "WATCHDOG=trigger");
        }
    }
}

constexpr char kStatistics[] = "/kivo/data/logs/ppstat/ppstats.csv";

/// Whether the file of an earlier run gives way to one of this run.
bool is_begun_anew(QoServiceProcess& service) {
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (service.running() && std::chrono::steady_clock::now() < deadline) {
        std::string first;
        std::getline(std::ifstream(kStatistics), first);
        if (first.starts_with("UTC Time")) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

// Each of the allocations that come before the first row and while it is written, with a rotation of the file.
TEST_F(MemoryShortage, AtTheFirstRowOfTheStatisticsOnlyPutsItOff) {
    std::filesystem::create_directories(std::filesystem::path(kStatistics).parent_path());
    std::ofstream("/kivo/data/pushpull_stats.cfg") << "1\n";
    QoFaults faults(service());
    service().make_queue();
    for (uint64_t call = 0; call < 60; ++call) {
        SCOPED_TRACE("allocation " + std::to_string(call) + " of the timer's threads");
        std::ofstream(kStatistics) << "an earlier run\n";
        faults.clear();
        faults.add({.calls = kQoTimer, .act = QoFaultAct::kHasten, .last = kQoAlways, .milliseconds = 10});
        faults.add({.calls = kQoAllocate, .first = call, .threads = QoFaultThreads::kOthers});
        faults.add({.calls = kQoSyncAll, .act = QoFaultAct::kLie, .last = kQoAlways});
        faults.arm();
        ASSERT_TRUE(service().start_and_wait({"-l"}));
        ASSERT_TRUE(is_begun_anew(service()));
        EXPECT_EQ(service().stop(), 0);
    }
}

/// The allocations of a start before it looks into its data directory.
uint64_t allocations_before_directory(QoServiceProcess& service, QoFaults& faults) {
    const size_t allocations = faults.add({.calls = kQoAllocate, .first = kQoAlways});
    const size_t looks = faults.add(
        {.calls = kQoOpen | kQoDirectory, .path = "/kivo/data", .act = QoFaultAct::kSlow, .milliseconds = 200});
    faults.arm();
    service.start();
    while (service.running() && faults.hits(looks) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const uint64_t before = faults.seen(allocations);
    service.send_signal(SIGKILL);
    EXPECT_TRUE(service.wait_for_end());
    faults.clear();
    return before;
}

TEST_F(MemoryShortage, WhileTheDataDirectoryIsReadEndsTheStartWithoutACrash) {
    QoFaults faults(service());
    service().make_queue();
    const uint64_t before = allocations_before_directory(service(), faults);
    ASSERT_GT(before, 100U);
    for (uint64_t call = before - 10; call < before + 20; ++call) {
        SCOPED_TRACE("allocation " + std::to_string(call));
        const size_t notifications = events().notifications().size();
        faults.clear();
        faults.add({.calls = kQoAllocate, .first = call});
        faults.arm();
        service().start();
        while (service().running() && events().notifications().size() == notifications)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (events().notifications().size() > notifications) service().send_signal(SIGKILL);
        const std::optional<int> status = service().wait_for_end();
        ASSERT_TRUE(status);
        EXPECT_FALSE(WIFSIGNALED(*status) && WTERMSIG(*status) != SIGKILL) << "signal " << WTERMSIG(*status);
    }
}

// The C library starts a thread for each expiry, and says nothing when it gets no memory for it.
TEST_F(MemoryShortage, WhenTheSaveTimerExpiresOnlyPutsTheSaveOff) {
    QoFaults faults(service());
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), QO_CMPID_DEMO);
    component.fence();
    faults.add({.calls = kQoTimer, .act = QoFaultAct::kHasten, .last = kQoAlways, .milliseconds = 10});
    faults.add({.calls = kQoAllocate, .threads = QoFaultThreads::kOthers});
    faults.arm();
    ASSERT_EQ(component.api().publish(QO_CMPID_DEMO, R"({"version":{"schemaVersion":"9"}})"), 0);
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved the data tree"));
    EXPECT_EQ(faults.hits(1), 1U);
}

}  // namespace
