/// Points in time for calls that wait up to an absolute deadline. Not installed. Any thread.
#ifndef QO_PUSHPULL_DEADLINE_H
#define QO_PUSHPULL_DEADLINE_H

#include <time.h>

#include <chrono>
#include <limits>

/// Now plus `duration` on `clock`; now for a negative duration, the clock's last second for one beyond it.
inline timespec qo_deadline_after(clockid_t clock, std::chrono::milliseconds duration) {
    constexpr long kNanosecondsPerSecond = 1000000000;
    timespec deadline{};
    clock_gettime(clock, &deadline);
    if (duration.count() <= 0) return deadline;
    const std::chrono::seconds whole = std::chrono::duration_cast<std::chrono::seconds>(duration);
    if (whole.count() >= std::numeric_limits<time_t>::max() - deadline.tv_sec - 1) {
        deadline.tv_sec = std::numeric_limits<time_t>::max();
        return deadline;
    }
    deadline.tv_sec += static_cast<time_t>(whole.count());
    deadline.tv_nsec += static_cast<long>(std::chrono::nanoseconds(duration - whole).count());
    if (deadline.tv_nsec >= kNanosecondsPerSecond) {
        deadline.tv_nsec -= kNanosecondsPerSecond;
        ++deadline.tv_sec;
    }
    return deadline;
}

#endif
