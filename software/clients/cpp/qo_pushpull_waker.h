/// The one descriptor that a component polls: readable when a message has arrived, when something is due, and when it
/// was woken. Header of the library's own.
#ifndef QO_PUSHPULL_WAKER_H
#define QO_PUSHPULL_WAKER_H

#include <chrono>

#include "qo_pushpull_descriptor.h"

class QoPushpullWaker {
public:
    /// @return false with errno when the system gives no more descriptors
    bool open();

    /// A message in this queue makes it readable, until the queue's descriptor is closed.
    bool watch(int queue);

    /// -1 before open().
    int descriptor() const { return all_.get(); }

    /// Makes it readable until settle(). Any thread, any signal handler.
    void wake() const noexcept;

    /// Takes back what wake() and the time that is due have made readable; whoever calls it looks at both.
    void settle() const;

    /// Makes it readable at that time, in place of the time before.
    void set_due(std::chrono::steady_clock::time_point time) const;

private:
    bool add(int descriptor) const;

    QoDescriptor all_;    // an epoll of those below and of the queue
    QoDescriptor woken_;  // an eventfd
    QoDescriptor clock_;  // a timerfd
};

#endif
