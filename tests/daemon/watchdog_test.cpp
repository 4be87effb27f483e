// What systemd's watchdog hears of the main thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <thread>

#include "component.h"
#include "service_process.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr int kComponent = QO_CMPID_DEMO;

class WatchedService : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        setenv("WATCHDOG_USEC", "40000", 1);  // a report every hundredth of a second
        const testing::AssertionResult started = service().start_and_wait();
        unsetenv("WATCHDOG_USEC");
        ASSERT_TRUE(started);
    }
    size_t reports() {
        const std::vector<std::string> all = events().notifications();
        return static_cast<size_t>(std::count(all.begin(), all.end(), "WATCHDOG=1"));
    }
    bool is_sending() {
        std::ifstream status("/proc/" + std::to_string(service().pid()) + "/syscall");
        long system_call = -1;
        status >> system_call;
#ifdef SYS_mq_timedsend_time64
        if (system_call == SYS_mq_timedsend_time64) return true;
#endif
        return system_call == SYS_mq_timedsend;
    }
};

class UnwatchedService : public RunningService {};

TEST_F(UnwatchedService, ReportsNothing) {
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
    EXPECT_THAT(events().notifications(), ElementsAre("READY=1"));
}

TEST_F(WatchedService, ReportsWhileIdleAndLogsNothing) {
    ASSERT_TRUE(events().wait_for_notifications(3));
    events().clear_log();
    EXPECT_TRUE(events().wait_for_notifications(20));
    EXPECT_EQ(events().notifications().front(), "READY=1");
    EXPECT_TRUE(events().log().empty());
}

TEST_F(WatchedService, ReportsAfterEverySendToAQueueThatIsFull) {
    constexpr int kFull = 4;
    Component publisher(service(), kComponent);
    std::list<Component> stuck;
    for (int number = 0; number < kFull; ++number) {
        stuck.emplace_back(service(), QO_CMPID_WEBSERVER_GATEWAY_C0 + number, Component::Queue{1, 256});
        ASSERT_EQ(stuck.back().api().subscribe(stuck.back().id(), "/version", false), 0);
    }
    const std::string text = R"({"version":{"schemaVersion":"9"}})";
    ASSERT_EQ(publisher.api().publish(publisher.id(), text), 0);
    publisher.fence();
    for (const Component& component : stuck) ASSERT_EQ(component.waiting_messages(), 1);

    events().clear_log();
    const size_t before = reports();
    ASSERT_EQ(publisher.api().publish(publisher.id(), text), 0);
    ASSERT_TRUE(events().wait_for_log(LOG_ERR, "Component data publish failed = -1"));
    EXPECT_GE(reports() - before, size_t{kFull}) << "one for each second of the request";
    for (Component& component : stuck) component.drain();
}

TEST_F(WatchedService, ReportsNothingWhileTheMainThreadStandsStill) {
    Component asking(service(), kComponent);
    Component stuck(service(), QO_CMPID_TESTPUBLISHER, {1, 256});
    ASSERT_EQ(asking.api().get(stuck.id(), "/version", "", false), 0);  // the answer fills its queue
    asking.fence();
    ASSERT_EQ(stuck.waiting_messages(), 1);
    ASSERT_EQ(asking.api().exit_request(asking.id(), "true"), 0);
    // To say "exit" it waits for room without a limit.
    EXPECT_EQ(asking.next_message(), "pushpull exiting");
    EXPECT_EQ(asking.next_message(), "exit");
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (!is_sending() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    ASSERT_TRUE(is_sending());
    const size_t before = reports();
    std::this_thread::sleep_for(std::chrono::seconds(1));  // of a hundred reports
    EXPECT_EQ(reports(), before);

    EXPECT_THAT(stuck.next_message(), HasSubstr("schemaVersion"));
    EXPECT_EQ(stuck.next_message(), "exit");
    const std::optional<int> status = service().wait_for_end();
    ASSERT_TRUE(status);
    EXPECT_EQ(*status, 0);
}

}  // namespace
