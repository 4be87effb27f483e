/// How the main thread waits for the next request.
#ifndef QO_PUSHPULL_REQUEST_WAIT_H
#define QO_PUSHPULL_REQUEST_WAIT_H

#include <mqueue.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <optional>

/// Receives requests. Signals may act while it waits, and nowhere else (qo_pushpull_signal_gate.h). Waits without a
/// deadline, so no clock that is set prolongs it.
class QoRequestWait {
public:
    QoRequestWait() = default;
    QoRequestWait(const QoRequestWait&) = delete;
    QoRequestWait& operator=(const QoRequestWait&) = delete;

    /// Reports life, waits for a message and takes it. Main thread.
    /// @return what mq_receive() returns, but for EINTR, with errno, which is 0 after a message; nothing after
    ///         interrupt().
    std::optional<ssize_t> receive(mqd_t queue, char* buffer, size_t size);
    /// Ends the wait under way on that queue, which may have lost its name, and every later one. Any thread.
    void interrupt(mqd_t queue);

private:
    std::atomic<bool> interrupted_{false};
};

#endif
