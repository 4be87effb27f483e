// Waiting for a request: what ends it, which signals may act meanwhile, and that it reports life. On real queues and
// signals.
#include "qo_pushpull_request_wait.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "log_capture.h"
#include "qo_pushpull_life.h"
#include "qo_pushpull_signal_gate.h"
#include "qo_scratch_queue.h"

namespace {

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

class RequestWait : public testing::Test {
protected:
    ~RequestWait() override { mq_close(service_end_); }

    std::optional<ssize_t> receive() { return wait_.receive(service_end_, buffer_, sizeof buffer_); }
    void interrupt() { wait_.interrupt(service_end_); }

    const QoScratchQueue queue_{"/waited_for", 4, 64};
    const mqd_t service_end_ = mq_open("/waited_for", O_RDWR | O_CLOEXEC);  // blocks, unlike the test's
    QoRequestWait wait_;
    char buffer_[64] = {};
    QoLogCapture log_;
};

}  // namespace

// ---- messages ----

TEST_F(RequestWait, TakesWhatIsThere) {
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(std::string(buffer_, 4), "text");
}

TEST_F(RequestWait, IsEndedByAMessage) {
    std::thread sender([this] { EXPECT_TRUE(queue_.put("text")); });
    EXPECT_EQ(receive(), 4);
    sender.join();
}

TEST_F(RequestWait, ReportsLifeBeforeItWaits) {
    LifeCounter life;
    life.at_report = [this](int) { EXPECT_TRUE(queue_.put("text")); };
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(life.count, 1);
}

TEST_F(RequestWait, OfAMessageWithoutBytesIsOver) {
    ASSERT_TRUE(queue_.put(""));
    EXPECT_EQ(receive(), 0);
}

TEST_F(RequestWait, LeavesNoErrnoOfTheRequestBefore) {
    ASSERT_TRUE(queue_.put("text"));
    errno = ENOENT;
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(errno, 0);
}

TEST_F(RequestWait, OnNoQueueFailsAtOnce) {
    EXPECT_EQ(wait_.receive(-1, buffer_, sizeof buffer_), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(RequestWait, WithATooSmallBufferFailsAtOnce) {
    EXPECT_EQ(wait_.receive(service_end_, buffer_, 1), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

// ---- interrupt() ----

TEST_F(RequestWait, IsInterruptedByAnotherThreadForGood) {
    std::thread other([this] { interrupt(); });
    EXPECT_EQ(receive(), std::nullopt);
    other.join();
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(), std::nullopt) << "also when there is a message";
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(RequestWait, IsInterruptedAlthoughItHasBegun) {
    LifeCounter life;
    life.at_report = [this](int) { interrupt(); };  // behind its look whether it was
    EXPECT_EQ(receive(), std::nullopt);
}

TEST_F(RequestWait, IsInterruptedBehindTheMessagesThatAreThere) {
    LifeCounter life;
    life.at_report = [this](int) {
        for (const char* text : {"1st", "2nd", "3rd", "4th"}) EXPECT_TRUE(queue_.put(text));
        interrupt();
    };
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(receive(), std::nullopt);
    EXPECT_EQ(queue_.count(), 3) << "a full queue needs no waking, and its messages stay";
}

TEST_F(RequestWait, IsInterruptedOnAQueueThatLostItsName) {
    mq_unlink("/waited_for");
    std::thread other([this] { interrupt(); });
    EXPECT_EQ(receive(), std::nullopt);
    other.join();
}

// ---- signals ----

namespace {

std::atomic<int> acted = 0;
std::atomic<int> held_back = 0;

void on_sigterm(int) { ++(QoSignalGate::may_sigterm_act() ? acted : held_back); }

/// Counts each SIGTERM; the main thread works unless it waits.
class Signals : public RequestWait {
protected:
    explicit Signals(int flags = SA_RESTART) {
        acted = 0;
        held_back = 0;
        struct sigaction action {};
        action.sa_handler = on_sigterm;
        action.sa_flags = flags;
        sigaction(SIGTERM, &action, nullptr);
    }
    ~Signals() override { signal(SIGTERM, SIG_DFL); }
};

/// Whose handler ends system calls.
class InterruptingSignals : public Signals {
protected:
    InterruptingSignals() : Signals(0) {}
};

using SignalGate = Signals;

void work(std::chrono::microseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) continue;
}

}  // namespace

TEST_F(SignalGate, WithoutALoopLetsSigtermAct) {
    raise(SIGTERM);
    EXPECT_EQ(acted, 1);
    EXPECT_FALSE(QoSignalGate::is_waiting());
}

TEST_F(SignalGate, HoldsSigtermBackWhileTheThreadWorks) {
    const QoSignalGate working(QoSignalGate::State::kWorking);
    for (int signals = 0; signals < 3; ++signals) raise(SIGTERM);
    EXPECT_EQ(acted, 0);
    EXPECT_EQ(held_back, 3);
}

TEST_F(SignalGate, RaisesOnceAtTheEndOfTheWorkWhatItHeldBack) {
    {
        const QoSignalGate working(QoSignalGate::State::kWorking);
        for (int signals = 0; signals < 3; ++signals) raise(SIGTERM);
    }
    EXPECT_EQ(acted, 1);
}

TEST_F(SignalGate, RaisesAtTheNextWaitWhatItHeldBack) {
    const QoSignalGate working(QoSignalGate::State::kWorking);
    raise(SIGTERM);
    ASSERT_TRUE(queue_.put("text"));
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(acted, 1);
    raise(SIGTERM);
    EXPECT_EQ(acted, 1) << "held back again behind the wait";
}

TEST_F(SignalGate, LetsSigtermActWhileTheQueueIsEmpty) {
    const QoSignalGate working(QoSignalGate::State::kWorking);
    std::thread other([this, main = pthread_self()] {
        while (!QoSignalGate::is_waiting()) std::this_thread::yield();
        pthread_kill(main, SIGTERM);
        while (acted == 0) std::this_thread::yield();
        EXPECT_TRUE(queue_.put("text"));
    });
    EXPECT_EQ(receive(), 4);
    other.join();
    EXPECT_EQ(held_back, 0);
}

TEST_F(InterruptingSignals, DoNotEndTheWait) {
    const QoSignalGate working(QoSignalGate::State::kWorking);
    std::thread other([this, main = pthread_self()] {
        while (!QoSignalGate::is_waiting()) std::this_thread::yield();
        for (int signals = 1; signals <= 100; ++signals) {
            pthread_kill(main, SIGTERM);
            while (acted + held_back < signals) std::this_thread::yield();
        }
        EXPECT_TRUE(queue_.put("text"));
    });
    EXPECT_EQ(receive(), 4);
    other.join();
}

// Meets the thread at any point of its work and of its way into the wait and out of it. Nothing else ends that wait.
TEST_F(SignalGate, LosesNoSigtermWheneverItComes) {
    constexpr int kSignals = 5000;
    constexpr std::chrono::seconds kPatience{30};
    const QoSignalGate working(QoSignalGate::State::kWorking);
    std::thread other([&, main = pthread_self()] {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        for (int signals = 1; signals <= kSignals && acted == signals - 1; ++signals) {
            for (int messages = signals % 4; messages > 0; --messages) queue_.put("text");
            pthread_kill(main, SIGTERM);
            while (acted < signals && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
        }
        while (!queue_.put("end")) std::this_thread::yield();
    });
    for (int turn = 0; receive() != 3; ++turn) work(std::chrono::microseconds(turn % 64));
    EXPECT_EQ(acted, kSignals);
    other.join();
    std::cout << held_back << " of " << kSignals << " were held back\n";
}
