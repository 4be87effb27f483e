/// The umask of the process, cleared while a queue is created. Not installed. Header only; any thread.
#ifndef QO_PUSHPULL_CLEARED_UMASK_H
#define QO_PUSHPULL_CLEARED_UMASK_H

#include <sys/types.h>

#include <mutex>

#include "qo_pushpull_message_queue.h"

/// Clears the umask for the life of this object, one object at a time. Of two threads that each cleared it and put
/// back what they had found, the later one would leave the process without a umask for good.
class QoClearedUmask {
public:
    QoClearedUmask() : lock_(mutex()), former_(set_umask_to_all()) {}
    ~QoClearedUmask() { set_umask_value(former_); }
    QoClearedUmask(const QoClearedUmask&) = delete;
    QoClearedUmask& operator=(const QoClearedUmask&) = delete;

private:
    static std::mutex& mutex() {
        static std::mutex mutex;
        return mutex;
    }

    const std::lock_guard<std::mutex> lock_;
    const mode_t former_;
};

#endif
