/// A receive queue without a thread: its descriptor can be polled, because nothing takes a message out of it unasked.
#ifndef QO_PUSHPULL_C_QUEUE_H
#define QO_PUSHPULL_C_QUEUE_H

#include <mqueue.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "qo_pushpull_descriptor.h"

/// One thread at a time. Results are those of qo_pushpull_c.h.
class QoClientQueue {
public:
    QoClientQueue() = default;
    /// Removes the queue from the system.
    ~QoClientQueue();
    QoClientQueue(const QoClientQueue&) = delete;
    QoClientQueue& operator=(const QoClientQueue&) = delete;

    /// Makes the queue, or takes over one that nobody holds, and drains it. Held with a lock that the kernel takes away
    /// when the process ends, however it ends.
    /// @return OK, QUEUE_TAKEN, QUEUE_FAILED, NO_MEMORY
    int32_t open(const std::string& name, int32_t messages, int32_t message_size);

    /// @param timeout nothing waits without a limit
    /// @return OK, TIMEOUT, INTERRUPTED, QUEUE_FAILED
    int32_t receive(std::optional<std::chrono::milliseconds> timeout);

    /// What the last receive took, with a NUL behind it; valid until the next one.
    std::string_view text() const { return text_; }

    const std::string& name() const { return name_; }
    mqd_t descriptor() const { return descriptor_.get(); }
    /// As they were when it was opened.
    const mq_attr& attributes() const { return attributes_; }

private:
    int32_t take_over(const std::string& name);
    bool take();

    std::string name_;         // empty while no queue is held
    QoDescriptor descriptor_;  // the lock lies on it
    mq_attr attributes_{};
    std::unique_ptr<char[]> buffer_;  // one byte longer than a message, for the NUL
    std::string_view text_;           // in buffer_
};

#endif
