// Waiting for a request: what ends it, what it lets in, and that it reports life. On real queues and signals.
#include "qo_pushpull_request_wait.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>

#include <thread>

#include "log_capture.h"
#include "qo_pushpull_life.h"
#include "qo_scratch_queue.h"

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

volatile sig_atomic_t sigterms = 0;

void count_sigterm(int) { sigterms = sigterms + 1; }

class LifeCounter final : public QoLifeReporter {
public:
    LifeCounter() { qo_life_reporter = this; }
    ~LifeCounter() { qo_life_reporter = nullptr; }
    LifeCounter(const LifeCounter&) = delete;
    LifeCounter& operator=(const LifeCounter&) = delete;
    void report() noexcept override {
        ++count;
        if (at_report) at_report(count);
    }

    int count = 0;
    std::function<void(int)> at_report;
};

/// With SIGTERM blocked, as the service has it.
class RequestWait : public testing::Test {
protected:
    RequestWait() {
        sigterms = 0;
        struct sigaction action {};
        action.sa_handler = count_sigterm;
        sigaction(SIGTERM, &action, nullptr);
        sigset_t sigterm;
        sigemptyset(&sigterm);
        sigaddset(&sigterm, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &sigterm, &former_);
    }
    ~RequestWait() override {
        signal(SIGTERM, SIG_IGN);
        pthread_sigmask(SIG_SETMASK, &former_, nullptr);
        signal(SIGTERM, SIG_DFL);
        mq_close(service_end_);
    }

    std::optional<ssize_t> receive(QoRequestWait& wait, std::optional<milliseconds> longest_wait = std::nullopt) {
        return wait.receive(service_end_, buffer_, sizeof buffer_, longest_wait);
    }

    const QoScratchQueue queue_{"/waited_for", 4, 64};
    const mqd_t service_end_ = mq_open("/waited_for", O_RDONLY | O_CLOEXEC);  // blocks, unlike the test's
    char buffer_[64] = {};
    QoLogCapture log_;

private:
    sigset_t former_{};
};

}  // namespace

TEST_F(RequestWait, TakesWhatIsThere) {
    QoRequestWait wait;
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(wait), 4);
    EXPECT_EQ(std::string(buffer_, 4), "text");
}

TEST_F(RequestWait, WaitsForWhatIsNotThereYet) {
    QoRequestWait wait;
    LifeCounter life;
    life.at_report = [&](int count) {
        if (count == 3) EXPECT_TRUE(queue_.put("late"));
    };
    EXPECT_EQ(receive(wait, milliseconds(1)), 4);
}

TEST_F(RequestWait, ReportsLifeAfterEveryLimitAndLogsNothing) {
    QoRequestWait wait;
    LifeCounter life;
    life.at_report = [&](int count) {
        if (count == 20) wait.interrupt();
    };
    EXPECT_EQ(receive(wait, milliseconds(1)), std::nullopt);
    EXPECT_GE(life.count, 20);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(RequestWait, WithoutALimitIsEndedByAMessage) {
    QoRequestWait wait;
    std::thread sender([this] { EXPECT_TRUE(queue_.put("text")); });
    EXPECT_EQ(receive(wait), 4);
    sender.join();
}

TEST_F(RequestWait, IsInterruptedByAnotherThreadForGood) {
    QoRequestWait wait;
    std::thread other([&wait] { wait.interrupt(); });
    EXPECT_EQ(receive(wait), std::nullopt);
    other.join();
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(wait), std::nullopt) << "also when there is a message";
}

TEST_F(RequestWait, OfAMessageWithoutBytesIsOver) {
    QoRequestWait wait;
    ASSERT_TRUE(queue_.put(""));
    EXPECT_EQ(receive(wait), 0);
}

TEST_F(RequestWait, OnNoQueueFailsAtOnce) {
    QoRequestWait wait;
    EXPECT_EQ(wait.receive(-1, buffer_, sizeof buffer_, std::nullopt), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(RequestWait, WithATooSmallBufferFailsAtOnce) {
    QoRequestWait wait;
    EXPECT_EQ(wait.receive(service_end_, buffer_, 1, std::nullopt), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(RequestWait, LetsSigtermInWhileTheQueueIsEmpty) {
    QoRequestWait wait{hours(1)};
    LifeCounter life;
    life.at_report = [&](int count) {
        if (count == 1) raise(SIGTERM);
        if (count == 2) EXPECT_TRUE(queue_.put("text"));
    };
    EXPECT_EQ(receive(wait), 4) << "the signal has ended the first wait";
    EXPECT_EQ(sigterms, 1);
}

TEST_F(RequestWait, LetsSigtermInNowAndThenWhenTheQueueNeverIsEmpty) {
    QoRequestWait wait{milliseconds(0)};
    raise(SIGTERM);
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(wait), 4);
    EXPECT_EQ(sigterms, 1);
}

TEST_F(RequestWait, LeavesSigtermBlocked) {
    QoRequestWait wait{milliseconds(0)};
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(wait), 4);
    raise(SIGTERM);
    EXPECT_EQ(sigterms, 0);
}
