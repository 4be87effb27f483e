/// The receive queue of a client that can be polled: no thread takes anything out of it. Not installed; one thread.
#ifndef QO_PUSHPULL_OWN_QUEUE_H
#define QO_PUSHPULL_OWN_QUEUE_H

#include <mqueue.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "qo_pushpull_descriptor.h"

/// Holds its queue with a lock that the kernel takes away when the process ends, however it ends: two running processes
/// never share one, and the queue of one that was killed is taken over.
class QoPushpullOwnQueue {
public:
    QoPushpullOwnQueue() = default;
    ~QoPushpullOwnQueue() { remove(); }
    QoPushpullOwnQueue(const QoPushpullOwnQueue&) = delete;
    QoPushpullOwnQueue& operator=(const QoPushpullOwnQueue&) = delete;

    /// Takes over the queue of that name, emptied, or makes it; one of another size is made anew. In place of the queue
    /// that was open before.
    /// @return 0; -1 with errno, EBUSY when somebody else holds the queue. What was open before stays then.
    int open(const std::string& name, long messages, long message_size);

    /// False once somebody has removed the queue: the service would then send into another one.
    bool is_named() const { return !qo_is_unlinked(descriptor_.get()); }

    int descriptor() const { return descriptor_.get(); }
    const std::string& name() const { return name_; }
    const mq_attr& attributes() const { return attributes_; }

    /// Messages that wait in it now.
    long waiting() const;

    /// The next text, without its NUL; nothing with errno when there is none, EAGAIN when none has arrived.
    std::optional<std::string> take();

    /// @return whether a message has arrived by then
    bool wait_until(std::chrono::steady_clock::time_point deadline) const;

private:
    void remove();

    std::string name_;
    QoDescriptor descriptor_;
    mq_attr attributes_{};
    std::vector<char> buffer_;
};

#endif
