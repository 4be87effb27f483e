/// The client's patience with the pauses and deadlines of production, on the real clock.
#include <unistd.h>

#include <chrono>
#include <future>

#include "log_capture.h"
#include "qo_pushpull_api.h"
#include "qo_scratch_queue.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

milliseconds since(Clock::time_point start) { return std::chrono::duration_cast<milliseconds>(Clock::now() - start); }

// How late a loaded machine may be. How often the client tried is told by its log.
constexpr milliseconds kLate{20000};

TEST(ApiPatience, WithAnAbsentQueueIsFiveReopenAttemptsOneSecondApart) {
    const QoLogCapture log;
    QoPushpullApi api;
    ASSERT_EQ(api.init(""), -1);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(api.flush(QO_CMPID_DEMO), -1);
    const milliseconds taken = since(start);
    EXPECT_GE(taken, milliseconds(5000));
    EXPECT_LT(taken, milliseconds(5000) + kLate);
    for (const char* attempt : {"1", "2", "3", "4", "5"}) {
        EXPECT_TRUE(log.contains(LOG_ERR, std::string("QoPushpullApi : MsgQueue: Invalid Descriptor: ffffffff, Retry "
                                                      "Attempt ") +
                                              attempt));
    }
    EXPECT_TRUE(log.contains(LOG_CRIT,
                             "QoPushpullApi : Fatal Error: Can not open msg que to push pull after 5 retries.  "
                             "Aborting!"));
}

TEST(ApiPatience, EndsWithTheAttemptThatFindsTheQueue) {
    QoPushpullApi api;
    ASSERT_EQ(api.init(""), -1);
    const QoLogCapture log;
    const Clock::time_point start = Clock::now();
    std::future<int32_t> sent = std::async(std::launch::async, [&api] { return api.flush(QO_CMPID_DEMO); });
    const QoLogLine second_attempt{LOG_ERR, "QoPushpullApi : MsgQueue: Invalid Descriptor: ffffffff, Retry Attempt 2"};
    while (!log.contains(second_attempt.level, second_attempt.text)) {
        ASSERT_LT(since(start), milliseconds(1000) + kLate);
        usleep(1000);
    }
    const QoScratchQueue service("/pushpull", 2, 256);
    EXPECT_EQ(sent.get(), 0);
    EXPECT_GE(since(start), milliseconds(2000));
    EXPECT_LT(since(start), milliseconds(2000) + kLate);
    EXPECT_EQ(service.count(), 1);
    EXPECT_FALSE(log.contains(LOG_ERR, "QoPushpullApi : MsgQueue: Invalid Descriptor: ffffffff, Retry Attempt 3"));
}

TEST(ApiPatience, WithAFullQueueIsFiveSendsOfOneSecondWithOneSecondBetween) {
    const QoScratchQueue service("/pushpull", 2, 256);
    service.fill();
    QoPushpullApi api;
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(api.post_msg_to_pushpull_data("0123456789"), -1);
    const milliseconds taken = since(start);
    EXPECT_GE(taken, milliseconds(9900));  // the deadlines run on another clock
    EXPECT_LT(taken, milliseconds(10000) + kLate);
    const std::vector<QoLogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 6U);
    for (size_t attempt = 0; attempt < 5; ++attempt) {
        EXPECT_EQ(lines[attempt], (QoLogLine{LOG_ERR,
                                             "QoPushPullApi: mq_timedsend failed with errnum 110, Msgs in que = "
                                             "2, Retry Attempt " +
                                                 std::to_string(attempt)}));
    }
    EXPECT_EQ(lines[5].level, LOG_CRIT);
}

}  // namespace
