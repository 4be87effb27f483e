/// Who may serve a service queue: one process at a time, on a queue that no other user made.
#ifndef QO_PUSHPULL_QUEUE_CLAIM_H
#define QO_PUSHPULL_QUEUE_CLAIM_H

#include <mqueue.h>
#include <sys/stat.h>

#include <chrono>
#include <string>

#include "qo_pushpull_descriptor.h"

/// Settings of a claim; the service uses the defaults.
struct QoQueueClaimTimings {
    std::chrono::milliseconds patience{1000};  // a killed process holds its claim until its memory is freed
    std::chrono::milliseconds pause{10};       // between two attempts meanwhile
};

/// Holds a service queue for this process. The claim is an advisory lock on a descriptor of its own, so it ends with
/// the process, however that ends; programs that the process runs do not inherit it. No message is touched.
/// Main thread only. The end of the object lets the queue go, which stays in the system.
class QoServiceQueueClaim {
public:
    enum class Result {
        held,       // this process alone serves the queue
        made_anew,  // likewise; what was opened under that name before the call is another queue
        no_queue,   // it can be neither opened nor made, as the caller will find; nothing is claimed
        refused,    // another process serves it, or its owner cannot be kept out; logged at LOG_CRIT
    };

    explicit QoServiceQueueClaim(QoQueueClaimTimings timings = {});
    QoServiceQueueClaim(const QoServiceQueueClaim&) = delete;
    QoServiceQueueClaim& operator=(const QoServiceQueueClaim&) = delete;

    /// Claims the queue of that name, which is made with the attributes and QO_QUEUE_MODE when it does not exist. One
    /// that belongs neither to root nor to the user of this process is removed and made anew, since its owner could
    /// read and answer what is meant for the service; that is logged at LOG_CRIT. One that every user may open, or that
    /// is smaller than `wanted`, is taken and logged at LOG_WARNING. A queue that is held already stays so. On failure
    /// what was held before stays held.
    Result take(const std::string& name, const mq_attr& wanted);

private:
    Result take_once(const std::string& name, const mq_attr& wanted, bool& again);
    bool holds(const struct stat& queue) const;
    bool lock(const std::string& name, mqd_t descriptor) const;

    const QoQueueClaimTimings timings_;
    QoDescriptor held_;
};

#endif
