/// The service's request queue as it can be looked at from outside: whether it is there, how full it is and how
/// long its messages may be. Requests are sent through the client library, never through this object.
#ifndef QO_CTL_SERVICE_QUEUE_H
#define QO_CTL_SERVICE_QUEUE_H

#include <mqueue.h>

#include <string>
#include <string_view>

/// An open message queue descriptor; closes it. -1 means none.
class QoCtlDescriptor {
public:
    explicit QoCtlDescriptor(mqd_t descriptor = -1) : descriptor_(descriptor) {}
    ~QoCtlDescriptor() { reset(); }
    QoCtlDescriptor(const QoCtlDescriptor&) = delete;
    QoCtlDescriptor& operator=(const QoCtlDescriptor&) = delete;

    mqd_t get() const { return descriptor_; }
    void reset(mqd_t descriptor = -1) {
        if (descriptor_ != -1) mq_close(descriptor_);
        descriptor_ = descriptor;
    }

private:
    mqd_t descriptor_;
};

/// The name of the request queue of a service that was started with this instance suffix.
std::string qo_ctl_service_queue_name(const std::string& instance);

/// The queues of this program are called so: this, the instance suffix, "-", and the number of the identifier.
inline constexpr char QO_CTL_OWN_QUEUE_NAME[] = "/pushpullctl";

/// Whether a queue of that name may be the request queue of a service, of whatever suffix.
bool qo_ctl_may_be_service_queue(std::string_view name);

class QoCtlServiceQueue {
public:
    /// @return 0, or the errno of the failed open: ENOENT when no service ever made the queue.
    int open(const std::string& instance);

    const std::string& name() const { return name_; }
    /// All zero when they cannot be read.
    mq_attr attributes() const;
    bool is_full() const;

private:
    std::string name_;
    QoCtlDescriptor descriptor_;
};

#endif
