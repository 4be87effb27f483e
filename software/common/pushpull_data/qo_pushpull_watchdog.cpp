// Reporting life to systemd's watchdog.
#include "qo_pushpull_watchdog.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>

#include "qo_pushpull_systemd.h"

namespace {

// So often that a report may come late by half of the period and the next one still be in time.
constexpr int kReportsPerPeriod = 4;

}  // namespace

QoServiceWatchdog::QoServiceWatchdog() : next_(Clock::now()) {
    uint64_t period = 0;  // microseconds
    // A variable that cannot be read is that of no watchdog.
    if (sd_watchdog_enabled(0, &period) <= 0) return;
    const auto longest = std::chrono::duration_cast<std::chrono::microseconds>(Clock::duration::max()).count();
    interval_ = std::chrono::microseconds(std::min(period, static_cast<uint64_t>(longest)) / kReportsPerPeriod);
    qo_life_reporter = this;
}

QoServiceWatchdog::~QoServiceWatchdog() {
    if (qo_life_reporter == this) qo_life_reporter = nullptr;
}

void QoServiceWatchdog::report() noexcept {
    const Clock::time_point now = Clock::now();
    if (now < next_) return;
    next_ = now + interval_;
    // A report that is lost is made up for by the next one.
    [[maybe_unused]] const int result = qo_notify_systemd("WATCHDOG=1", std::chrono::milliseconds(0));
}

std::optional<std::chrono::milliseconds> QoServiceWatchdog::longest_wait() const {
    if (interval_ == Clock::duration::zero()) return std::nullopt;
    return std::chrono::ceil<std::chrono::milliseconds>(interval_);
}
