/// The watchdog of systemd, which kills and restarts a service whose main thread stands still.
#ifndef QO_PUSHPULL_WATCHDOG_H
#define QO_PUSHPULL_WATCHDOG_H

#include <chrono>
#include <optional>

#include "qo_pushpull_life.h"

/// Passes the signs of life of the thread that creates it on to systemd ("WATCHDOG=1"), when systemd asks for them by
/// WATCHDOG_USEC. Of that thread only, and one object at a time: another thread would report while it stands still.
class QoServiceWatchdog final : public QoLifeReporter {
public:
    QoServiceWatchdog();
    ~QoServiceWatchdog();
    QoServiceWatchdog(const QoServiceWatchdog&) = delete;
    QoServiceWatchdog& operator=(const QoServiceWatchdog&) = delete;

    /// Tells systemd, at most four times in the period that it waits for the next report.
    void report() noexcept override;
    /// How long a wait may last before the next sign of life; nothing when nobody watches.
    std::optional<std::chrono::milliseconds> longest_wait() const;

private:
    using Clock = std::chrono::steady_clock;

    Clock::duration interval_{0};  // between two reports; 0: nobody watches
    Clock::time_point next_;
};

#endif
