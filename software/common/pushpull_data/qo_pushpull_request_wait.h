/// How the main thread waits for the next request.
#ifndef QO_PUSHPULL_REQUEST_WAIT_H
#define QO_PUSHPULL_REQUEST_WAIT_H

#include <mqueue.h>
#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>

#include "qo_pushpull_descriptor.h"

/// Receives requests and lets SIGTERM in, here and nowhere else (qo_pushpull_sigterm_mask.h): for the whole of every
/// wait for a message, and now and then between two messages when there is always one. Reports life meanwhile.
/// Waits by the monotonic clock: setting the wall clock neither ends nor prolongs a wait.
class QoRequestWait {
public:
    using Milliseconds = std::chrono::milliseconds;

    /// The signals that the calling thread blocks now, but for SIGTERM, are blocked during a wait.
    /// @param let_in_every how long SIGTERM may have to wait in front of a queue that never is empty
    explicit QoRequestWait(Milliseconds let_in_every = Milliseconds(100));
    QoRequestWait(const QoRequestWait&) = delete;
    QoRequestWait& operator=(const QoRequestWait&) = delete;

    /// Waits for a message and takes it. One thread at a time.
    /// @param longest_wait without a sign of life; nothing: no limit
    /// @return what mq_receive() returns, with errno; nothing when interrupt() was called.
    std::optional<ssize_t> receive(mqd_t queue, char* buffer, size_t size, std::optional<Milliseconds> longest_wait);
    /// Ends the wait under way and every later one. Any thread.
    void interrupt();

private:
    void let_sigterm_in();
    void wait(mqd_t queue, std::optional<Milliseconds> longest_wait) const;

    using Clock = std::chrono::steady_clock;

    const Milliseconds let_in_every_;
    sigset_t mask_;             // while it waits; fixed after construction
    Clock::time_point let_in_;  // when SIGTERM was last let in
    std::atomic<bool> interrupted_{false};
    const QoDescriptor
        wake_up_;  // an eventfd; when the system had none, interrupt() takes effect with the next message
};

#endif
