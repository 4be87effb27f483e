// SIGUSR1 while the service is at work: it often interrupts the log sender, which goes on all the same, or the
// allocator, whose lock the trace then waits for in vain.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "component.h"
#include "service_process.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kUnderWay{50};        // of publishing, before the signal
constexpr std::chrono::seconds kReboot{25};  // below the 30 s after which the queue monitor gives the service up

class Sigusr1UnderLoad : public ServiceProcess, public testing::WithParamInterface<int> {
protected:
    void publish_until(const std::atomic<bool>& done) {
        Component component(service(), QO_CMPID_DEMO, {2, 4096});
        const std::string text = R"({"devices":[{"id":0,"device":{"deviceName":")" + std::string(300, 'x') + R"("}}]})";
        while (!done)
            if (service().waiting_requests() + 1 < service().capacity())
                EXPECT_EQ(component.api().publish(component.id(), text), 0);
    }
};

TEST_P(Sigusr1UnderLoad, RebootsWhateverItInterrupts) {
    service().make_queue("", 3);
    ASSERT_TRUE(service().start_and_wait());
    std::atomic<bool> rebooted{false};
    std::thread watcher([&] {
        std::this_thread::sleep_for(kUnderWay + std::chrono::microseconds(731 * GetParam()));
        service().send_signal(SIGUSR1);
        EXPECT_TRUE(events().wait_for_command("reboot now", kReboot));
        service().send_signal(SIGKILL);
        EXPECT_TRUE(service().wait_for_end());
        rebooted = true;
    });
    publish_until(rebooted);
    watcher.join();
}

INSTANTIATE_TEST_SUITE_P(Moments, Sigusr1UnderLoad, testing::Range(0, 6));

class Sigusr1Reboot : public RunningService {};

TEST_F(Sigusr1Reboot, ARebootThatTakesItsTimeHoldsNoRequest) {
    events().stall_stand_in("reboot");
    Component component(service(), QO_CMPID_DEMO);
    service().send_signal(SIGUSR1);
    ASSERT_TRUE(events().wait_for_command("reboot now"));
    EXPECT_NE(component.get("/version"), "");
}

}  // namespace
