/// Ends a session by a signal in the orderly way: nothing is done in a handler.
#ifndef QO_CTL_SIGNALS_H
#define QO_CTL_SIGNALS_H

#include <mqueue.h>
#include <signal.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include "qo_ctl_event.h"

/// From its making on SIGINT, SIGTERM and SIGHUP are held back, in this thread and in those that it starts; those
/// that the process was started with as ignored stay ignored. watch() then tells of them. SIGTSTP is answered with
/// a word and does not stop the process: the service restarts the device when the queue of a stopped client stays
/// full. One object at a time; made while the process has one thread.
class QoCtlSignals {
public:
    QoCtlSignals();
    ~QoCtlSignals();
    QoCtlSignals(const QoCtlSignals&) = delete;
    QoCtlSignals& operator=(const QoCtlSignals&) = delete;

    /// The first of the signals is from now on noted, and wakes whoever waits for a message in that queue by a
    /// message there. The queue stays the caller's, which calls unwatch before it closes it.
    void watch(mqd_t queue);
    void unwatch();

    /// Wakes the waiting one as a signal would, without noting one. Any thread.
    void wake();

    /// The number of the signal that came; 0 while none has.
    int caught() const { return caught_; }

    /// Ends all of it: signals have their usual effect again, also one that came since unwatch.
    void release();

    /// What wake() sends.
    static constexpr char kWakeUpText[] = "PUSHPULLCTL WAKES UP";

private:
    void run();
    void take(int signal_number);

    bool held_ = true;
    sigset_t mask_before_{};
    sigset_t watched_{};
    struct sigaction pipe_before_ {};
    struct sigaction output_before_ {};
    struct sigaction input_before_ {};
    int signals_ = -1;                // descriptor from which the thread reads signals
    std::optional<QoCtlEvent> quit_;  // ends the thread
    std::thread thread_;
    std::mutex queue_mutex_;
    mqd_t queue_ = -1;  // guarded by queue_mutex_
    std::atomic<int> caught_{0};
};

#endif
