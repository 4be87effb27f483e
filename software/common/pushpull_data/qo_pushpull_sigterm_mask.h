/// Where SIGTERM may arrive. Header only.
///
/// The SIGTERM handler posts to a queue, logs and ends the process, so it may only run on a thread that holds
/// no lock. That is the main thread while it waits for a request: there SIGTERM is let in, everywhere else it
/// is blocked. A thread inherits the mask of the thread that creates it, so whoever creates one blocks SIGTERM
/// around the creation.
#ifndef QO_PUSHPULL_SIGTERM_MASK_H
#define QO_PUSHPULL_SIGTERM_MASK_H

#include <pthread.h>
#include <signal.h>

/// Blocks SIGTERM in the calling thread (SIG_BLOCK) or lets it in (SIG_UNBLOCK) for the life of this object, then
/// restores what was. A SIGTERM that arrives while blocked stays pending and is delivered when it is let in.
/// Created and destroyed by one thread.
class QoSigtermMask {
public:
    explicit QoSigtermMask(int how) {
        sigset_t only_sigterm;
        sigemptyset(&only_sigterm);
        sigaddset(&only_sigterm, SIGTERM);
        pthread_sigmask(how, &only_sigterm, &former_);
    }
    ~QoSigtermMask() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    QoSigtermMask(const QoSigtermMask&) = delete;
    QoSigtermMask& operator=(const QoSigtermMask&) = delete;

private:
    sigset_t former_;
};

#endif
