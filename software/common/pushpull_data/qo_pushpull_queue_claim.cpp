// Making sure that the service alone serves its queue.
#include "qo_pushpull_queue_claim.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

#include <thread>
#include <utility>

#include "qo_pushpull_cleared_umask.h"
#include "qo_pushpull_constants.h"

namespace {

// Somebody who makes the queue again as often as it is removed is not to keep the service busy for ever.
constexpr int kAttempts = 5;

mqd_t open_queue(const std::string& name, mq_attr attributes) {
    const QoClearedUmask cleared;
    return mq_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, QO_QUEUE_MODE, &attributes);
}

bool is_foreign(const struct stat& queue) { return queue.st_uid != 0 && queue.st_uid != geteuid(); }

// False when the queue stays.
bool remove_foreign(const std::string& name, const struct stat& queue) {
    const auto owner = static_cast<long>(queue.st_uid);
    if (mq_unlink(name.c_str()) == 0 || errno == ENOENT) {
        syslog(LOG_CRIT, "PushPullData MessageQueue: %s belonged to user %ld and is made anew", name.c_str(), owner);
        return true;
    }
    syslog(LOG_CRIT, "PushPullData MessageQueue: %s belongs to user %ld and cannot be removed: %m", name.c_str(),
           owner);
    return false;
}

void report_weaknesses(const std::string& name, mqd_t descriptor, const struct stat& queue, const mq_attr& wanted) {
    if ((queue.st_mode & S_IRWXO) != 0) {
        syslog(LOG_WARNING, "PushPullData MessageQueue: %s is open to every user (mode %04o)", name.c_str(),
               static_cast<unsigned>(queue.st_mode & ALLPERMS));
    }
    mq_attr found{};
    if (mq_getattr(descriptor, &found) != 0) return;
    if (found.mq_maxmsg < wanted.mq_maxmsg || found.mq_msgsize < wanted.mq_msgsize) {
        syslog(LOG_WARNING, "PushPullData MessageQueue: %s holds %ld messages of %ld bytes instead of %ld of %ld",
               name.c_str(), static_cast<long>(found.mq_maxmsg), static_cast<long>(found.mq_msgsize),
               static_cast<long>(wanted.mq_maxmsg), static_cast<long>(wanted.mq_msgsize));
    }
}

}  // namespace

QoServiceQueueClaim::QoServiceQueueClaim(QoQueueClaimTimings timings) : timings_(timings) {}

QoServiceQueueClaim::Result QoServiceQueueClaim::take(const std::string& name, const mq_attr& wanted) {
    qo_set_mqueue_limits();
    bool made_anew = false;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        bool again = false;
        const Result result = take_once(name, wanted, again);
        if (!again) return result == Result::held && made_anew ? Result::made_anew : result;
        made_anew = true;
    }
    syslog(LOG_CRIT, "PushPullData MessageQueue: %s was replaced %d times while it was taken", name.c_str(), kAttempts);
    return Result::refused;
}

// `again` is set when the name may stand for another queue now.
QoServiceQueueClaim::Result QoServiceQueueClaim::take_once(const std::string& name, const mq_attr& wanted,
                                                           bool& again) {
    QoDescriptor queue(open_queue(name, wanted));
    struct stat status {};
    if (!queue || fstat(queue.get(), &status) != 0) return Result::no_queue;
    // Before the lock: the owner of a foreign queue could keep it locked for ever.
    if (is_foreign(status)) {
        again = remove_foreign(name, status);
        return Result::refused;
    }
    if (holds(status)) return Result::held;
    if (!lock(name, queue.get())) return Result::refused;
    // Whoever waited for the lock may have got that of a queue that was removed meanwhile.
    again = qo_is_unlinked(queue.get());
    if (again) return Result::refused;
    report_weaknesses(name, queue.get(), status, wanted);
    held_ = std::move(queue);
    return Result::held;
}

bool QoServiceQueueClaim::holds(const struct stat& queue) const {
    struct stat held {};
    return held_ && fstat(held_.get(), &held) == 0 && held.st_dev == queue.st_dev && held.st_ino == queue.st_ino;
}

bool QoServiceQueueClaim::lock(const std::string& name, mqd_t descriptor) const {
    const auto deadline = std::chrono::steady_clock::now() + timings_.patience;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            // A system without such locks is no reason to leave the device without its service.
            syslog(LOG_WARNING, "PushPullData MessageQueue: %s cannot be locked: %m", name.c_str());
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            syslog(LOG_CRIT, "PushPullData MessageQueue: %s is served by another process", name.c_str());
            return false;
        }
        std::this_thread::sleep_for(timings_.pause);
    }
    return true;
}
