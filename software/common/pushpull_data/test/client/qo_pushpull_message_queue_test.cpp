// The mutex and the signal that the queues are built from, and deadlines.
#include "qo_pushpull_message_queue.h"

#include <time.h>

#include <future>
#include <thread>
#include <type_traits>

#include "qo_pushpull_deadline.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto kNever = [](int) { return false; };
constexpr auto kNotZero = [](int value) { return value != 0; };

timespec in(milliseconds duration) { return qo_deadline_after(CLOCK_MONOTONIC, duration); }

/// Broadcasts again and again until `future` is ready: whether its thread waits already cannot be seen from here.
template <typename T, typename Value>
T broadcast_until_ready(std::future<T>& future, QoPushpullSignal<Value>& signal, Value value) {
    while (future.wait_for(milliseconds(1)) != std::future_status::ready) signal.broadcast(value);
    return future.get();
}

// ---- mutex ----

TEST(Mutex, LetsOneThreadInAtATime) {
    QoPushpullMutex mutex;
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 10000; ++i) {
            const std::lock_guard<QoPushpullMutex> guard(mutex);
            ++counter;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 20000);
}

TEST(Mutex, GivesTheMutexThatItLocks) {
    QoPushpullMutex mutex;
    mutex.lock();
    EXPECT_EQ(pthread_mutex_trylock(mutex.get_reference()), EBUSY);
    mutex.unlock();
    ASSERT_EQ(pthread_mutex_trylock(mutex.get_reference()), 0);
    mutex.unlock();
}

TEST(Mutex, IsNotCopied) {
    static_assert(!std::is_copy_constructible_v<QoPushpullMutex> && !std::is_copy_assignable_v<QoPushpullMutex>);
    static_assert(!std::is_copy_constructible_v<QoPushpullSignal<int>>);
}

// ---- signal ----

TEST(Signal, StartsAtZeroOrFalseWithNothingBroadcast) {
    QoPushpullSignal<int> number;
    QoPushpullSignal<bool> flag;
    EXPECT_EQ(number.get_value(), 0);
    EXPECT_FALSE(flag.get_value());
    EXPECT_FALSE(number.test_proceed());
    EXPECT_FALSE(flag.test_proceed());
}

TEST(Signal, SetValueStoresWithoutWaking) {
    QoPushpullSignal<int> signal;
    signal.set_value(7);
    EXPECT_EQ(signal.get_value(), 7);
    EXPECT_FALSE(signal.test_proceed());
    EXPECT_EQ(signal.timedwait(in(milliseconds(1)), kNever), std::nullopt);
}

TEST(Signal, BroadcastStoresAndSetsProceed) {
    QoPushpullSignal<int> signal;
    signal.broadcast(7);
    EXPECT_EQ(signal.get_value(), 7);
    EXPECT_TRUE(signal.test_proceed());
}

TEST(Signal, ConditionalWaitReturnsAnAwaitedValueThatIsStoredAlready) {
    QoPushpullSignal<int> signal;
    signal.broadcast(7);
    EXPECT_EQ(signal.conditionalwait(kNotZero), 7);
    EXPECT_FALSE(signal.test_proceed());
}

TEST(Signal, ConditionalWaitIsWokenByABroadcast) {
    QoPushpullSignal<int> signal;
    std::future<int> waiting = std::async(std::launch::async, [&] { return signal.conditionalwait(kNotZero); });
    signal.broadcast(5);
    EXPECT_EQ(waiting.get(), 5);
    EXPECT_FALSE(signal.test_proceed());
}

TEST(Signal, ConditionalWaitAlsoReturnsABroadcastValueThatIsNotAwaited) {
    QoPushpullSignal<bool> signal;
    std::future<bool> waiting =
        std::async(std::launch::async, [&] { return signal.conditionalwait([](bool value) { return value; }); });
    EXPECT_FALSE(broadcast_until_ready(waiting, signal, false));
}

TEST(Signal, ConditionalWaitSeesWhatWasSetBeforeABroadcastThatItMissed) {
    QoPushpullSignal<bool> signal;
    std::atomic<bool> run{true};
    run = false;
    signal.broadcast(false);
    EXPECT_FALSE(signal.conditionalwait([&run](bool value) { return value || !run; }));
}

TEST(Signal, WaitIgnoresWhatIsStoredAndTakesTheNextBroadcast) {
    QoPushpullSignal<int> signal;
    signal.broadcast(1);
    std::future<int> waiting = std::async(std::launch::async, [&] { return signal.wait(); });
    EXPECT_EQ(broadcast_until_ready(waiting, signal, 2), 2);
}

TEST(Signal, TimedWaitGivesUpAtItsDeadlineOnTheMonotonicClock) {
    QoPushpullSignal<int> signal;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(signal.timedwait(in(milliseconds(50)), kNotZero), std::nullopt);
    EXPECT_GE(Clock::now() - start, milliseconds(50));
}

TEST(Signal, TimedWaitReturnsAStoredValueAlsoAfterItsDeadline) {
    QoPushpullSignal<int> signal;
    signal.broadcast(7);
    EXPECT_EQ(signal.timedwait(timespec{}, kNotZero), 7);
    EXPECT_EQ(signal.timedwait(timespec{}, kNever), std::nullopt);
}

TEST(Signal, TimedWaitIsWokenByABroadcast) {
    QoPushpullSignal<int> signal;
    std::future<std::optional<int>> waiting =
        std::async(std::launch::async, [&] { return signal.timedwait(in(std::chrono::minutes(1)), kNotZero); });
    signal.broadcast(5);
    EXPECT_EQ(waiting.get(), 5);
}

TEST(Signal, HandsEveryValueOverWhenEachIsAnswered) {
    QoPushpullSignal<bool> request;
    QoPushpullSignal<int> answer;
    constexpr int kRounds = 2000;
    std::thread worker([&] {
        for (int round = 1; round <= kRounds; ++round) {
            while (!request.conditionalwait([](bool value) { return value; })) {
            }
            request.set_value(false);
            answer.broadcast(round);
        }
    });
    for (int round = 1; round <= kRounds; ++round) {
        request.broadcast(true);
        ASSERT_EQ(answer.conditionalwait(kNotZero), round);
        answer.set_value(0);
    }
    worker.join();
}

// ---- deadlines ----

double seconds(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

TEST(Deadline, IsNowPlusTheDurationWithNanosecondsBelowASecond) {
    for (const int64_t duration : {0, 1, 999, 1000, 1001, 2500}) {
        const timespec before = in(milliseconds(0));
        const timespec deadline = in(milliseconds(duration));
        const timespec after = in(milliseconds(0));
        EXPECT_GE(seconds(deadline), seconds(before) + static_cast<double>(duration) / 1000 - 1e-6);
        EXPECT_LE(seconds(deadline), seconds(after) + static_cast<double>(duration) / 1000 + 1e-6);
        EXPECT_GE(deadline.tv_nsec, 0);
        EXPECT_LT(deadline.tv_nsec, 1000000000);
    }
}

TEST(Deadline, OfANegativeDurationIsNow) {
    EXPECT_GE(seconds(in(milliseconds::min())), seconds(in(milliseconds(0))) - 1);
}

TEST(Deadline, BeyondTheClockDoesNotWrapIntoThePast) {
    EXPECT_GT(in(milliseconds::max()).tv_sec, in(milliseconds(0)).tv_sec);
}

}  // namespace
