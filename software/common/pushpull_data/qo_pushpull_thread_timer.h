/// A timer whose expiry is handled on a thread of its own. Header only; no state; any thread.
#ifndef QO_PUSHPULL_THREAD_TIMER_H
#define QO_PUSHPULL_THREAD_TIMER_H

#include <signal.h>
#include <time.h>

#include "qo_pushpull_blocked_signal.h"

/// Creates a monotonic timer, not yet set, that calls `expired` with `owner`. The caller deletes it.
/// @return false with `timer` as a zero when there is none to be had
inline bool qo_create_thread_timer(void (*expired)(sigval), void* owner, timer_t& timer) {
    sigevent notification{};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_notify_function = expired;
    notification.sigev_value.sival_ptr = owner;
    // The thread that waits for the timer inherits the mask.
    const QoBlockedSignal blocked(SIGTERM);
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer) == 0) return true;
    timer = timer_t{};
    return false;
}

#endif
