// Looking at the service's request queue.
#include "qo_ctl_service_queue.h"

#include <fcntl.h>

#include <cerrno>

#include "qo_pushpull_constants.h"

std::string qo_ctl_service_queue_name(const std::string& instance) { return QO_SERVICE_QUEUE_NAME + instance; }

bool qo_ctl_may_be_service_queue(std::string_view name) {
    return name.starts_with(QO_SERVICE_QUEUE_NAME) && !name.starts_with(QO_CTL_OWN_QUEUE_NAME);
}

int QoCtlServiceQueue::open(const std::string& instance) {
    name_ = qo_ctl_service_queue_name(instance);
    // As the client library opens it, so that what is allowed here is allowed there.
    descriptor_.reset(mq_open(name_.c_str(), O_RDWR));
    return descriptor_.get() == -1 ? errno : 0;
}

mq_attr QoCtlServiceQueue::attributes() const {
    mq_attr attributes{};
    if (mq_getattr(descriptor_.get(), &attributes) != 0) return mq_attr{};
    return attributes;
}

bool QoCtlServiceQueue::is_full() const {
    const mq_attr now = attributes();
    return now.mq_maxmsg > 0 && now.mq_curmsgs >= now.mq_maxmsg;
}
