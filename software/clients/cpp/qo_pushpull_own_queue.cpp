// Making a component's receive queue, and taking over one that was left behind.
#include "qo_pushpull_own_queue.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>

#include <algorithm>

#include "qo_pushpull_constants.h"
#include "qo_pushpull_message_queue.h"

namespace {

constexpr int kOpenAttempts = 10;  // each fails only when the last owner removes the queue at that very moment

/// As a message queue descriptor is inherited, and waits, by default.
bool make_private_and_non_blocking(mqd_t descriptor) {
    mq_attr non_blocking{};
    non_blocking.mq_flags = O_NONBLOCK;
    return fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0 && mq_setattr(descriptor, &non_blocking, nullptr) == 0;
}

}  // namespace

int QoPushpullOwnQueue::open(const std::string& name, long messages, long message_size) {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        mq_attr wanted{};
        wanted.mq_maxmsg = messages;
        wanted.mq_msgsize = message_size;
        QoDescriptor opened(qo_mq_open(name.c_str(), O_RDWR | O_CREAT, QO_QUEUE_MODE, &wanted));
        if (!opened) return -1;
        // On Linux a message queue descriptor is a file descriptor, and the lock lies on the queue itself.
        if (flock(opened.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK) errno = EBUSY;
            return -1;
        }
        if (qo_is_unlinked(opened.get())) continue;
        mq_attr found{};
        if (mq_getattr(opened.get(), &found) != 0) return -1;
        if (found.mq_maxmsg != messages || found.mq_msgsize != message_size) {
            mq_unlink(name.c_str());
            continue;
        }
        if (!make_private_and_non_blocking(opened.get())) return -1;
        descriptor_ = std::move(opened);
        name_ = name;
        attributes_ = wanted;
        buffer_.resize(static_cast<size_t>(message_size));
        for (long left = waiting(); left > 0; --left) take();
        return 0;
    }
    errno = EBUSY;
    return -1;
}

long QoPushpullOwnQueue::waiting() const {
    mq_attr now{};
    return mq_getattr(descriptor_.get(), &now) == 0 ? now.mq_curmsgs : 0;
}

// By the length of the message: a published text may have a NUL inside.
std::optional<std::string> QoPushpullOwnQueue::take() {
    const ssize_t length = mq_receive(descriptor_.get(), buffer_.data(), buffer_.size(), nullptr);
    if (length < 0) return std::nullopt;
    std::string text(buffer_.data(), static_cast<size_t>(length));
    if (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

bool QoPushpullOwnQueue::wait_until(std::chrono::steady_clock::time_point deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    pollfd arrival{descriptor_.get(), POLLIN, 0};
    return poll(&arrival, 1, static_cast<int>(std::max<decltype(left)>(left, 0))) == 1;
}

/// Unlinked before it is let go: until then nobody else takes the name.
void QoPushpullOwnQueue::remove() {
    if (descriptor_ && is_named()) mq_unlink(name_.c_str());
    descriptor_ = QoDescriptor();
}
