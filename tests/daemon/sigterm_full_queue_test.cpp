// SIGTERM where the service cannot post its two requests: both are given up after their attempts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>

#include <fstream>

#include "component.h"
#include "qo_pushpull_constants.h"
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

// What systemd kills before cannot post its requests.
TEST(SigtermUnit, StopsNoEarlierThanTheEndOfALongRequestAndOfBothPosts) {
    constexpr std::chrono::seconds kLongRequest{40};  // 40 subscribers whose queues are full
    const QoPushpullApiTimings timings;
    const auto two_posts = 2 * QO_SEND_ATTEMPTS * (timings.send_deadline + timings.retry_pause);
    std::ifstream unit(QO_UNIT_FILE);
    long seconds = 0;
    for (std::string line; std::getline(unit, line);)
        if (line.starts_with("TimeoutStopSec=")) seconds = std::stol(line.substr(line.find('=') + 1));
    EXPECT_GE(std::chrono::seconds(seconds), kLongRequest + two_posts);
}

}  // namespace
