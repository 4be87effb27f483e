/// The receive queue of this process, made so that two running pushpullctl never share one, and that what a
/// killed one left behind is taken over by the next.
#ifndef QO_CTL_OWN_QUEUE_H
#define QO_CTL_OWN_QUEUE_H

#include <mqueue.h>

#include <optional>
#include <string>
#include <string_view>

#include "qo_component_ids.h"
#include "qo_ctl_service_queue.h"

/// The name of the receive queue for an identifier. It is always the same: when a killed pushpullctl left its
/// registration in the service, the service still sends into the queue of this name.
std::string qo_ctl_own_queue_name(const std::string& instance, eQO_CMP_IDs_ id);

/// The identifier in such a name; nothing in any other.
std::optional<eQO_CMP_IDs_> qo_ctl_owner_of_queue(std::string_view name);

enum class QoCtlOwnQueueResult {
    opened,
    taken,    // another pushpullctl runs with this identifier, or the queue is another user's
    no_room,  // others use up the quota
    failed,   // with the reason in errno
};

/// Holds the queue with a lock that the kernel takes away when the process ends, however it ends.
class QoCtlOwnQueue {
public:
    ~QoCtlOwnQueue() { remove(); }

    /// Takes over the queue of that name, with the attributes that it has, or makes it.
    /// @param message_size bytes; 0 makes the longest messages that limits and quotas allow, up to 262144
    QoCtlOwnQueueResult open(const std::string& name, long message_size);

    const std::string& name() const { return name_; }
    mqd_t descriptor() const { return descriptor_.get(); }
    /// As they were when it was opened.
    const mq_attr& attributes() const { return attributes_; }

    /// Unlinks the queue, unless it was not opened, and lets it go.
    void remove();

private:
    bool make_or_open(long message_size);

    std::string name_;
    QoCtlDescriptor descriptor_;
    mq_attr attributes_{};
};

/// Locks an open queue for as long as the descriptor, or a copy of it, stays open. Never waits.
/// @return false with EWOULDBLOCK when somebody else holds it.
bool qo_ctl_lock_queue(mqd_t descriptor);

#endif
