/// Tells a thread that waits with poll() that something has happened.
#ifndef QO_CTL_EVENT_H
#define QO_CTL_EVENT_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

/// Once set, its descriptor stays readable until it is cleared. Any thread.
class QoCtlEvent {
public:
    QoCtlEvent() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~QoCtlEvent() { close(descriptor_); }
    QoCtlEvent(const QoCtlEvent&) = delete;
    QoCtlEvent& operator=(const QoCtlEvent&) = delete;

    int descriptor() const { return descriptor_; }
    void set() {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(descriptor_, &one, sizeof one);  // it is set when this fails
    }
    void clear() {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t length = read(descriptor_, &count, sizeof count);  // fails when it is clear
    }

private:
    int descriptor_;
};

#endif
