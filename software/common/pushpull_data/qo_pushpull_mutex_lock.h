/// A POSIX mutex that is held for the length of a block.
#ifndef QO_PUSHPULL_MUTEX_LOCK_H
#define QO_PUSHPULL_MUTEX_LOCK_H

#include <pthread.h>

/// Holds a POSIX mutex from here to the end of the block.
class QoMutexLock {
public:
    explicit QoMutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~QoMutexLock() { pthread_mutex_unlock(&mutex_); }
    QoMutexLock(const QoMutexLock&) = delete;
    QoMutexLock& operator=(const QoMutexLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

#endif
