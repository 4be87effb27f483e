// Waiting for the next request.
#include "qo_pushpull_request_wait.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/eventfd.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "qo_pushpull_life.h"
#include "qo_pushpull_sigterm_mask.h"

namespace {

// A deadline that has passed: a receive with it takes what is there and never waits.
constexpr timespec kNoWaiting{};

timespec as_timespec(std::chrono::milliseconds time) {
    const std::chrono::seconds whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec result{};
    result.tv_sec = static_cast<time_t>(whole.count());
    result.tv_nsec = static_cast<long>(std::chrono::nanoseconds(time - whole).count());
    return result;
}

}  // namespace

QoRequestWait::QoRequestWait(Milliseconds let_in_every)
    : let_in_every_(let_in_every), let_in_(Clock::now()), wake_up_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_up_) syslog(LOG_ERR, "PushPullData: eventfd failed: %m");
    pthread_sigmask(SIG_BLOCK, nullptr, &mask_);
    sigdelset(&mask_, SIGTERM);
}

// The receive comes first: under load it is the only system call for a message.
std::optional<ssize_t> QoRequestWait::receive(mqd_t queue, char* buffer, size_t size,
                                              std::optional<Milliseconds> longest_wait) {
    let_sigterm_in();
    while (!interrupted_) {
        qo_report_life();
        const ssize_t received = mq_timedreceive(queue, buffer, size, nullptr, &kNoWaiting);
        if (received != -1 || (errno != ETIMEDOUT && errno != EINTR)) return received;
        wait(queue, longest_wait);
    }
    return std::nullopt;
}

void QoRequestWait::interrupt() {
    interrupted_ = true;
    const uint64_t one = 1;
    // It fails only when the wait was interrupted often enough already.
    [[maybe_unused]] const ssize_t written = write(wake_up_.get(), &one, sizeof one);
}

// A wait lets it in too, but there may be none for a long time.
void QoRequestWait::let_sigterm_in() {
    const Clock::time_point now = Clock::now();
    if (now - let_in_ < let_in_every_) return;
    let_in_ = now;
    const QoSigtermMask let_in(SIG_UNBLOCK);
}

// Whatever ends the wait, the queue is looked at next.
void QoRequestWait::wait(mqd_t queue, std::optional<Milliseconds> longest_wait) const {
    pollfd sources[] = {{queue, POLLIN, 0}, {wake_up_.get(), POLLIN, 0}};
    const timespec limit = as_timespec(longest_wait.value_or(Milliseconds(0)));
    [[maybe_unused]] const int result = ppoll(sources, 2, longest_wait ? &limit : nullptr, &mask_);
}
