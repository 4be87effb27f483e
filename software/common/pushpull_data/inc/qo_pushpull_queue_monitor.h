/// Supervision of the message queues that the service sends into and receives from.
#ifndef QO_PUSHPULL_QUEUE_MONITOR_H
#define QO_PUSHPULL_QUEUE_MONITOR_H

#include <mqueue.h>
#include <pthread.h>
#include <syslog.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "qo_component_ids.h"
#include "qo_pushpull_message_queue.h"

/// What one look at a queue comes to.
enum class QoFullQueueStep {
    drained,  // it is not full
    waiting,  // it is full, but not yet for too long
    failed,   // its reader has stopped
};

/// The rule of a look. Times are whole monotonic seconds; `time_full` is -1 while the queue is not full, else when it
/// was first seen full, and is kept up by the rule.
inline QoFullQueueStep watch_full_queue(bool full, time_t now, std::chrono::seconds full_for, time_t& time_full) {
    if (!full) {
        time_full = -1;
        return QoFullQueueStep::drained;
    }
    if (time_full < 0) time_full = now;
    return now - time_full < full_for.count() ? QoFullQueueStep::waiting : QoFullQueueStep::failed;
}

/// One queue under supervision. Only reads attributes through the descriptor, which stays its opener's.
/// No lock of its own: the monitor's `_mutexList` protects it.
class QoPushPullMonitoredQueue {
public:
    QoPushPullMonitoredQueue(std::string name, eQO_CMP_IDs_ comp_id, mqd_t descriptor);

    /// True when the queue holds as many messages as it can; false also when its attributes cannot be read.
    bool isFull() const;
    /// Monotonic seconds at which the queue was first seen full in the current run of fullness; -1 when it is
    /// not full.
    time_t timeFull() const;
    /// Logs name, component and how many messages wait (LOG_NOTICE).
    void logStatus() const;
    /// Looks whether the queue is full and keeps `timeFull` up; `now` in whole monotonic seconds.
    QoFullQueueStep watch(time_t now, std::chrono::seconds full_for);

    bool operator==(const std::string& name) const;
    bool operator==(eQO_CMP_IDs_ comp_id) const;
    bool operator==(mqd_t descriptor) const;
    std::string getQueueName() const;

    /// Counts one message and samples the queue's depth as it is now. Without readable attributes the depth
    /// counts as 0.
    void incStats();
    /// Counts one publish of this queue's component that arranged a save.
    void incSaves();
    /// The counts since the last call, which start again at zero: messages, publishes that arranged a save, greatest
    /// depth and average depth, as "3,1,2,1.333333".
    std::string getQueueData();

private:
    std::string _queueName;
    eQO_CMP_IDs_ _componentId;
    mqd_t _queueDescriptor;
    time_t _timeFull;
    int32_t _savesComp;
    int32_t _totalMsgsThroughQueue;
    int32_t _maxDepthUsed;   // messages
    int32_t _queueDepthSum;  // messages, over all samples
    float _avgDepthUsed;     // messages
};

/// How the monitor keeps time, and its files.
struct QoQueueMonitorSettings {
    std::chrono::milliseconds poll{1000};            // between two looks at the queues
    std::chrono::seconds full_for{120};              // how long a queue may stay full
    std::chrono::milliseconds restart_grace{30000};  // how long a restart may take
    std::chrono::milliseconds command_limit{10000};  // how long one command may take
    std::chrono::milliseconds report_limit{60000};   // how long all diagnostics may, whatever they hang in
    std::string command_output = "/kivo/data/logs/pushpullCmdResult.txt";
    std::string restart_script = "/var/volatile/tmp/restartPushPull.sh";
};

/// The list of supervised queues, in order of addition, and the thread that looks at them. A queue that stays full
/// means that a process has stopped reading: the thread then logs what runs on the device, lets a script send
/// SIGUSR1 to the service, which reboots the device, and ends the process when that has not happened in time.
///
/// Any thread: every operation takes `_mutexList`, which is held for a look at the queues and not while commands run.
class QoPushPullQueueMonitor {
public:
    /// Starts the thread. SIGTERM is blocked in it.
    explicit QoPushPullQueueMonitor(QoQueueMonitorSettings settings = {});
    /// Ends the thread and waits for it; a look that is under way is finished first. Main thread.
    ~QoPushPullQueueMonitor();
    QoPushPullQueueMonitor(const QoPushPullQueueMonitor&) = delete;
    QoPushPullQueueMonitor& operator=(const QoPushPullQueueMonitor&) = delete;

    /// Supervises a queue from now on. The descriptor stays the caller's, who removes the queue before closing it.
    void addQueue(const std::string& name, eQO_CMP_IDs_ comp_id, mqd_t descriptor);
    /// Ends the supervision of the queues of that name, component or descriptor, logging the last status of each.
    /// Does nothing when there is none.
    void removeQueue(const std::string& name);
    void removeQueue(eQO_CMP_IDs_ comp_id);
    void removeQueue(mqd_t descriptor);

    /// Looks from now on whether that queue still has its name. When it has lost it, logs that (LOG_CRIT) and calls
    /// `removed`: once, on the monitor's thread, with `_mutexList` held.
    void superviseName(const std::string& name, mqd_t descriptor, std::function<void()> removed);
    /// Ends that, before the descriptor is closed.
    void forgetName();
    /// Counts one message on the queue with that descriptor (QoPushPullMonitoredQueue::incStats), if there is one.
    void incQueueStats(mqd_t descriptor);
    /// Counts one publish that arranged a save, on its component's queue, if there is one.
    void incQueueSaves(eQO_CMP_IDs_ comp_id);

    /// The column names of the statistics: "A(Total),A(Saves),A(Max),A(Avg),B(Total)," and so on; "" without queues.
    /// Names with a comma, a quote, a line feed or a carriage return make quoted columns (RFC 4180).
    std::string getQueueNames();
    /// The values below these names, see QoPushPullMonitoredQueue::getQueueData. All counts start again at zero.
    std::string getQueueData();

private:
    template <typename Key>
    void remove_matching(const Key& key);

    static void* monitorThreadEntry(void* monitor);
    void monitorThread();
    void pause(std::chrono::milliseconds duration);
    bool poll_queues();
    void look_at_name();
    void restart_service();
    void report_failure();

    struct Report;
    static void run_commands(Report& report) noexcept;
    static void systemCommand(const Report& report, const char* command);
    static void logSystemCommandResult(const Report& report, const char* command);
    static void generateLogOutput(const char* command, std::string_view output, size_t left_out);

    // What a step comes to; false, and a line, when it throws. Nothing may leave a thread.
    template <typename Step>
    static bool attempt(const Step& step) {
        try {
            return step();
        } catch (const std::exception& error) {
            syslog(LOG_CRIT, "QoPushPullQueueMonitor: exception %s", error.what());
            return false;
        }
    }

    QoPushpullMutex _mutexList;           // taken after _mutexMonitorActive
    QoPushpullMutex _mutexMonitorActive;  // held by the thread for its whole life
    pthread_t _monitorThreadHandle;
    std::atomic<bool> _runMonitor;
    std::deque<std::unique_ptr<QoPushPullMonitoredQueue>> _monitoredQueues;  // guarded by _mutexList
    /// A queue whose name is supervised.
    struct Named {
        std::string name;
        mqd_t descriptor;
        std::function<void()> removed;
    };
    std::optional<Named> named_;  // guarded by _mutexList
    QoQueueMonitorSettings settings_;
    bool thread_started_;
    std::mutex pause_mutex_;
    std::condition_variable pause_ended_;  // with pause_mutex_: _runMonitor has become false
};
#endif
