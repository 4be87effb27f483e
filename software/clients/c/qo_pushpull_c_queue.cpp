// Making a receive queue, holding it alone, and waiting in it.
#include "qo_pushpull_c_queue.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>

#include <algorithm>
#include <limits>

#include "qo_pushpull_c.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_message_queue.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kOpenAttempts = 10;  // each fails only when another client of the queue ends at that very moment

// A deadline that has passed: the call takes what is there and never waits.
constexpr timespec kNoWaiting{};

/// What is left until a deadline, as poll wants it; -1 without one.
int patience(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) return -1;
    const auto left = std::chrono::ceil<milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, std::numeric_limits<int>::max()));
}

int32_t failed_wait() { return errno == EINTR ? QO_PUSHPULL_C_INTERRUPTED : QO_PUSHPULL_C_QUEUE_FAILED; }

}  // namespace

QoClientQueue::~QoClientQueue() {
    // The name goes while the lock is held: whoever gets the lock next sees that the queue has lost it.
    if (!name_.empty()) mq_unlink(name_.c_str());
}

int32_t QoClientQueue::open(const std::string& name, int32_t messages, int32_t message_size) {
    mq_attr wanted{};
    wanted.mq_maxmsg = messages;
    wanted.mq_msgsize = message_size;
    qo_set_mqueue_limits();
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        descriptor_ = QoDescriptor(qo_mq_open(name.c_str(), O_RDWR | O_CREAT, QO_QUEUE_MODE, &wanted));
        if (!descriptor_) return QO_PUSHPULL_C_QUEUE_FAILED;
        if (flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0)
            return errno == EWOULDBLOCK ? QO_PUSHPULL_C_QUEUE_TAKEN : QO_PUSHPULL_C_QUEUE_FAILED;
        if (!qo_is_unlinked(descriptor_.get())) return take_over(name);
    }
    return QO_PUSHPULL_C_QUEUE_TAKEN;
}

int32_t QoClientQueue::take_over(const std::string& name) {
    name_ = name;
    if (mq_getattr(descriptor_.get(), &attributes_) != 0) return QO_PUSHPULL_C_QUEUE_FAILED;
    buffer_ = std::make_unique<char[]>(static_cast<size_t>(attributes_.mq_msgsize) + 1);
    qo_handle_error_and_flush(descriptor_.get());
    return QO_PUSHPULL_C_OK;
}

int32_t QoClientQueue::receive(std::optional<milliseconds> timeout) {
    std::optional<Clock::time_point> deadline;
    if (timeout) deadline = Clock::now() + *timeout;
    while (!take()) {
        if (errno != ETIMEDOUT) return failed_wait();
        pollfd waiting{descriptor_.get(), POLLIN, 0};
        const int ready = poll(&waiting, 1, patience(deadline));
        if (ready == 0) return QO_PUSHPULL_C_TIMEOUT;
        if (ready < 0) return failed_wait();
    }
    return QO_PUSHPULL_C_OK;
}

/// @return false with errno, ETIMEDOUT when nothing is there.
bool QoClientQueue::take() {
    const auto size = static_cast<size_t>(attributes_.mq_msgsize);
    ssize_t length = 0;
    do {
        length = mq_timedreceive(descriptor_.get(), buffer_.get(), size, nullptr, &kNoWaiting);
    } while (length == 0);  // without even a NUL: no text
    if (length < 0) return false;
    auto end = static_cast<size_t>(length);
    if (buffer_[end - 1] == '\0') --end;
    buffer_[end] = '\0';
    text_ = std::string_view(buffer_.get(), end);
    return true;
}
