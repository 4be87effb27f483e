/// When the save timer fires. Free of state; any thread.
#ifndef QO_PUSHPULL_SAVE_TIMER_H
#define QO_PUSHPULL_SAVE_TIMER_H

#include <chrono>
#include <cstdint>

/// The save timer gathers a burst of changes into one write, which comes `first` after the first change, put off
/// by `extension` for each of the next `extensions` changes. A write that failed is tried again `retry` later.
struct QoSaveTimings {
    std::chrono::milliseconds first{5000};
    std::chrono::milliseconds extension{5000};
    int32_t extensions = 6;
    std::chrono::milliseconds retry{60000};
};

enum class QoSaveTimerStep {
    arm,     // there is no timer: create one that expires after `first`
    extend,  // let it expire `extension` later
    leave,   // it has been put off often enough
};

/// What one more change means for the save timer.
/// @param pending whether there is a timer; when there is none, the other facts do not matter
/// @param running whether it has still time to go. One that has expired, or waits to try a failed save again, is set
///        going anew however often it was extended, or nothing would ever be saved again.
/// @param times_asked how often changes found this timer pending, this one included
inline QoSaveTimerStep next_save_timer_step(bool pending, bool running, int32_t times_asked,
                                            const QoSaveTimings& timings) {
    if (!pending) return QoSaveTimerStep::arm;
    if (times_asked <= timings.extensions || !running) return QoSaveTimerStep::extend;
    return QoSaveTimerStep::leave;
}

#endif
