// Waiting for the next request.
#include "qo_pushpull_request_wait.h"

#include <errno.h>
#include <time.h>

#include "qo_pushpull_life.h"
#include "qo_pushpull_signal_gate.h"

namespace {

// A deadline that has passed: a send with it does what it can at once and never waits.
constexpr timespec kNoWaiting{};
constexpr unsigned kWakeUpPriority = 0;  // behind every request

ssize_t wait(mqd_t queue, char* buffer, size_t size) {
    const QoSignalGate waiting(QoSignalGate::State::kWaiting);
    return mq_receive(queue, buffer, size, nullptr);
}

}  // namespace

std::optional<ssize_t> QoRequestWait::receive(mqd_t queue, char* buffer, size_t size) {
    while (!interrupted_) {
        qo_report_life();
        const ssize_t received = wait(queue, buffer, size);
        const bool woken = received == 0 && interrupted_;
        if (woken || (received == -1 && errno == EINTR)) continue;
        // A handler may look at errno without looking at what failed: it shall not find that of the request before.
        if (received != -1) errno = 0;
        return received;
    }
    return std::nullopt;
}

// A message without a byte wakes the thread that waits. Where it finds no room nobody waits.
void QoRequestWait::interrupt(mqd_t queue) {
    interrupted_ = true;
    [[maybe_unused]] const int sent = mq_timedsend(queue, "", 0, kWakeUpPriority, &kNoWaiting);
}
