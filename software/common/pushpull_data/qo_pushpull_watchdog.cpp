// Reporting life to systemd's watchdog.
#include "qo_pushpull_watchdog.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "qo_pushpull_signal_gate.h"
#include "qo_pushpull_systemd.h"

namespace {

using std::chrono::nanoseconds;

// So often that a report may come late by half of the period and the next one still be in time.
constexpr int kReportsPerPeriod = 4;
// So often that it comes soon after a report is due.
constexpr int kExpiriesPerReport = 2;

// Where the thread does not wait for a request, its own reports tell whether it goes on.
void report_while_waiting(int) {
    if (QoSignalGate::is_waiting()) qo_report_life();
}

timespec as_timespec(nanoseconds time) {
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec result{};
    result.tv_sec = static_cast<time_t>(whole.count());
    result.tv_nsec = static_cast<long>((time - whole).count());
    return result;
}

}  // namespace

QoServiceWatchdog::QoServiceWatchdog() : next_(Clock::now()) {
    const std::optional<uint64_t> period = qo_systemd_watchdog_period();
    if (!period) return;
    const auto longest = std::chrono::duration_cast<std::chrono::microseconds>(Clock::duration::max()).count();
    interval_ = std::chrono::microseconds(std::min(*period, static_cast<uint64_t>(longest)) / kReportsPerPeriod);
    qo_life_reporter = this;
    start_timer();
}

// The handler stays: an expiry may be pending.
QoServiceWatchdog::~QoServiceWatchdog() {
    if (timer_) timer_delete(*timer_);
    if (qo_life_reporter == this) qo_life_reporter = nullptr;
}

void QoServiceWatchdog::start_timer() {
    struct sigaction action {};
    action.sa_handler = report_while_waiting;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(qo_life_timer_signal(), &action, nullptr);

    sigevent notification{};
    notification.sigev_notify = SIGEV_THREAD_ID;
    notification.sigev_signo = qo_life_timer_signal();
    notification._sigev_un._tid = gettid();
    timer_t timer{};
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer) != 0) {
        syslog(LOG_ERR, "PushPullData: no timer for the reports to systemd's watchdog: %m");
        return;
    }
    timer_ = timer;
    // A time of 0 would stop it.
    const timespec pause = as_timespec(std::max(nanoseconds(interval_) / kExpiriesPerReport, nanoseconds(1)));
    const itimerspec times{pause, pause};
    timer_settime(timer, 0, &times, nullptr);
}

void QoServiceWatchdog::report() noexcept {
    const Clock::time_point now = Clock::now();
    if (now < next_) return;
    next_ = now + interval_;
    // A report that is lost is made up for by the next one.
    [[maybe_unused]] const int result = qo_notify_systemd("WATCHDOG=1", std::chrono::milliseconds(0));
}
