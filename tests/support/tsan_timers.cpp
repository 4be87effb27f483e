// POSIX timers for programs under the thread sanitizer, which the C library's own would crash: its helper thread
// is unknown to the sanitizer. One thread per timer waits, and one more per expiry calls back, with every signal
// blocked as the C library has it. Only timers that notify by a thread, once, on the monotonic clock. Empty
// without the sanitizer.
#ifdef __SANITIZE_THREAD__

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

/// Starts a thread with every signal blocked.
template <typename Body>
std::thread start_thread(Body body) {
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    std::thread thread(body);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return thread;
}

class Timer {
public:
    explicit Timer(const sigevent& notification)
        : notification_(notification), thread_(start_thread([this] { run(); })) {}
    ~Timer() {
        {
            const std::lock_guard lock(mutex_);
            ended_ = true;
            changed_.notify_all();
        }
        thread_.join();
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void set(Clock::duration after) {
        const std::lock_guard lock(mutex_);
        expires_at_.reset();
        if (after.count() != 0) expires_at_ = Clock::now() + after;
        changed_.notify_all();
    }

    Clock::duration remaining() {
        const std::lock_guard lock(mutex_);
        return expires_at_ ? std::max(*expires_at_ - Clock::now(), Clock::duration(1)) : Clock::duration::zero();
    }

private:
    void run() {
        std::unique_lock lock(mutex_);
        while (!ended_) {
            if (!expires_at_) {
                changed_.wait(lock);
            } else if (Clock::now() < *expires_at_) {
                changed_.wait_until(lock, *expires_at_);
            } else {
                expires_at_.reset();
                start_thread([notification = notification_] {
                    notification.sigev_notify_function(notification.sigev_value);
                }).detach();
            }
        }
    }

    const sigevent notification_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Clock::time_point> expires_at_;
    bool ended_ = false;
    std::thread thread_;  // last: it uses the others
};

Clock::duration to_duration(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

extern "C" {

int timer_create(clockid_t clock, sigevent* notification, timer_t* timer) noexcept {
    if (clock != CLOCK_MONOTONIC || notification->sigev_notify != SIGEV_THREAD) {
        errno = ENOTSUP;
        return -1;
    }
    *timer = new Timer(*notification);
    return 0;
}

int timer_settime(timer_t timer, int, const itimerspec* time, itimerspec*) noexcept {
    static_cast<Timer*>(timer)->set(to_duration(time->it_value));
    return 0;
}

int timer_gettime(timer_t timer, itimerspec* time) noexcept {
    const auto left = static_cast<Timer*>(timer)->remaining();
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(left);
    *time = {};
    time->it_value.tv_sec = static_cast<time_t>(whole.count());
    time->it_value.tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - whole).count());
    return 0;
}

int timer_delete(timer_t timer) noexcept {
    delete static_cast<Timer*>(timer);
    return 0;
}

}  // extern "C"

#endif
