// SIGTERM where the service cannot post its two requests: both are given up after their attempts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>

#include "component.h"
#include "service_process.h"

namespace {

class SigtermFullQueue : public ServiceProcess {};

constexpr std::chrono::seconds kTwoPostsGivenUp{40};  // 2 x 5 attempts of 1 s with pauses of 1 s, and some patience

void expect_exit_0(QoServiceProcess& service) {
    service.send_signal(SIGTERM);
    const std::optional<int> status = service.wait_for_end(kTwoPostsGivenUp);
    ASSERT_TRUE(status) << "the service hangs";
    ASSERT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
}

TEST_F(SigtermFullQueue, WithTheQueueKeptFullExits0AfterBothPostsAreGivenUp) {
    ASSERT_TRUE(service().start_and_wait());
    service().send_signal(SIGSTOP);
    ASSERT_TRUE(service().post("{}"));
    while (service().waiting_requests() < service().capacity()) ASSERT_TRUE(service().post("{}"));
    service().send_signal(SIGTERM);
    service().send_signal(SIGCONT);
    expect_exit_0(service());
}

TEST_F(SigtermFullQueue, WithAnInstanceNameAndNoDefaultQueueExits0) {
    service().make_queue("foo");
    ASSERT_TRUE(service().start_and_wait({"-m", "foo"}));
    expect_exit_0(service());
    EXPECT_EQ(service().waiting_requests(), 0);  // the handler posts to the queue without suffix
    EXPECT_TRUE(events().wait_for_log(
        LOG_CRIT, "QoPushpullApi : Fatal Error: Can not open msg que to push pull after 5 retries.  Aborting!"));
}

}  // namespace
