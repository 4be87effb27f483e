/// The watchdog of systemd, which kills and restarts a service whose main thread stands still.
#ifndef QO_PUSHPULL_WATCHDOG_H
#define QO_PUSHPULL_WATCHDOG_H

#include <signal.h>
#include <time.h>

#include <chrono>
#include <optional>

#include "qo_pushpull_life.h"

/// The signal of the timer below. It may end a sleep of the thread early.
inline int qo_life_timer_signal() { return SIGRTMIN; }

/// Passes the signs of life of the thread that creates it on to systemd ("WATCHDOG=1"), when systemd asks for them by
/// WATCHDOG_USEC. Of that thread only, and one object at a time: another thread would report while it stands still.
///
/// While the thread waits for a request (qo_pushpull_signal_gate.h), which it may do for ever, a timer of the monotonic
/// clock interrupts it for the reports, and nothing else does.
class QoServiceWatchdog final : public QoLifeReporter {
public:
    QoServiceWatchdog();
    ~QoServiceWatchdog();
    QoServiceWatchdog(const QoServiceWatchdog&) = delete;
    QoServiceWatchdog& operator=(const QoServiceWatchdog&) = delete;

    /// Tells systemd, at most four times in the period that it waits for the next report. Calls only what a signal
    /// handler may.
    void report() noexcept override;

private:
    using Clock = std::chrono::steady_clock;

    void start_timer();

    Clock::duration interval_{0};  // between two reports
    Clock::time_point next_;
    std::optional<timer_t> timer_;  // none when nobody watches
};

#endif
