/// Keeping a signal from a thread. Header only.
///
/// The handler of SIGTERM acts on the main thread only, where it knows what it interrupts (qo_pushpull_signal_gate.h).
/// A thread inherits the mask of the thread that creates it, so whoever creates one blocks SIGTERM around the creation.
#ifndef QO_PUSHPULL_BLOCKED_SIGNAL_H
#define QO_PUSHPULL_BLOCKED_SIGNAL_H

#include <pthread.h>
#include <signal.h>

/// Blocks a signal in the calling thread for the life of this object, then restores what was. One that arrives
/// meanwhile stays pending. Created and destroyed by one thread.
class QoBlockedSignal {
public:
    explicit QoBlockedSignal(int signal_number) {
        sigset_t only_this;
        sigemptyset(&only_this);
        sigaddset(&only_this, signal_number);
        pthread_sigmask(SIG_BLOCK, &only_this, &former_);
    }
    ~QoBlockedSignal() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    QoBlockedSignal(const QoBlockedSignal&) = delete;
    QoBlockedSignal& operator=(const QoBlockedSignal&) = delete;

private:
    sigset_t former_;
};

#endif
