// Making the own receive queue, and taking over one that was left behind.
#include "qo_ctl_own_queue.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "qo_ctl_components.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_message_queue.h"

namespace {

struct Size {
    long messages;
    long message_size;  // bytes
};

// Tried in this order: what every message fits in, where the limits are raised; then sizes that leave something of the
// ordinary quota, 819200 bytes for all queues of a user, to the components that run beside us. The last but one is all
// that an ordinary user may make without changed settings.
constexpr Size kSizes[] = {
    {4, QO_QUEUE_MSGSIZE}, {4, QO_QUEUE_MSGSIZE / 8}, {10, QO_QUEUE_MSGSIZE / 32}, {4, QO_QUEUE_MSGSIZE / 64}};
constexpr long kDepths[] = {4, 2, 1};  // messages, when the message size is given
constexpr int kOpenAttempts = 10;      // each fails only when another pushpullctl ends at that very moment

/// True when the name still belongs to the queue that is open: its last owner unlinks it while it holds the lock.
bool is_still_named(const std::string& name, mqd_t descriptor) {
    const QoCtlDescriptor named(mq_open(name.c_str(), O_RDONLY));
    struct stat open_one {};
    struct stat named_one {};
    return named.get() != -1 && fstat(descriptor, &open_one) == 0 && fstat(named.get(), &named_one) == 0 &&
           open_one.st_ino == named_one.st_ino;
}

mqd_t open_or_make(const std::string& name, Size size) {
    mq_attr attributes{};
    attributes.mq_maxmsg = size.messages;
    attributes.mq_msgsize = size.message_size;
    return qo_mq_open(name.c_str(), O_RDWR | O_CREAT, QO_QUEUE_MODE, &attributes);
}

/// Over the quota, or over a limit that an ordinary user has: a smaller queue may do.
bool smaller_may_do(int error) { return error == EMFILE || error == EINVAL || error == ENOMEM; }

}  // namespace

std::string qo_ctl_own_queue_name(const std::string& instance, eQO_CMP_IDs_ id) {
    return QO_CTL_OWN_QUEUE_NAME + instance + "-" + std::to_string(static_cast<int32_t>(id));
}

std::optional<eQO_CMP_IDs_> qo_ctl_owner_of_queue(std::string_view name) {
    const size_t dash = name.rfind('-');
    if (!name.starts_with(QO_CTL_OWN_QUEUE_NAME) || dash == std::string_view::npos) return std::nullopt;
    return qo_ctl_component_id(name.substr(dash + 1));
}

bool qo_ctl_lock_queue(mqd_t descriptor) {
    // On Linux a message queue descriptor is a file descriptor, and the lock lies on the queue itself.
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

bool QoCtlOwnQueue::make_or_open(long message_size) {
    qo_set_mqueue_limits();
    mqd_t descriptor = -1;
    if (message_size > 0) {
        for (const long depth : kDepths) {
            descriptor = open_or_make(name_, {depth, message_size});
            if (descriptor != -1 || !smaller_may_do(errno)) break;
        }
    } else {
        for (const Size& size : kSizes) {
            descriptor = open_or_make(name_, size);
            if (descriptor != -1 || !smaller_may_do(errno)) break;
        }
    }
    descriptor_.reset(descriptor);
    return descriptor != -1;
}

QoCtlOwnQueueResult QoCtlOwnQueue::open(const std::string& name, long message_size) {
    name_ = name;
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        if (!make_or_open(message_size))
            return errno == EACCES   ? QoCtlOwnQueueResult::taken
                   : errno == EMFILE ? QoCtlOwnQueueResult::no_room
                                     : QoCtlOwnQueueResult::failed;
        if (!qo_ctl_lock_queue(descriptor_.get())) {
            descriptor_.reset();
            return QoCtlOwnQueueResult::taken;
        }
        if (is_still_named(name_, descriptor_.get())) {
            mq_getattr(descriptor_.get(), &attributes_);
            return QoCtlOwnQueueResult::opened;
        }
    }
    descriptor_.reset();
    return QoCtlOwnQueueResult::taken;
}

void QoCtlOwnQueue::remove() {
    if (descriptor_.get() == -1) return;
    mq_unlink(name_.c_str());
    descriptor_.reset();
}
