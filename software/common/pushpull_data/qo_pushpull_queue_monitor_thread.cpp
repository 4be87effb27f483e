// The thread that looks at the supervised queues, and what it does about one that stays full.
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <mutex>
#include <optional>
#include <utility>

#include "qo_pushpull_blocked_signal.h"
#include "qo_pushpull_descriptor.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_restart_script.h"
#include "qo_utilities_command.h"

namespace {

// SIGUSR1 makes the service log where it is stuck and reboot the device.
constexpr char kRestartScript[] = "sleep 2;\npkill -SIGUSR1 qo_pushpull\n";

time_t monotonic_seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

// Whether the shell did it, and in time.
bool run(const std::string& command, std::chrono::milliseconds limit) {
    const QoCommandResult result = qo_run_command(command.c_str(), {limit});
    return result.end == QoCommandEnd::ended && result.status == 0;
}

}  // namespace

// ---- life ----

QoPushPullQueueMonitor::QoPushPullQueueMonitor(QoQueueMonitorSettings settings)
    : _monitorThreadHandle(), _runMonitor(true), settings_(std::move(settings)), thread_started_(false) {
    const QoBlockedSignal blocked(SIGTERM);
    thread_started_ = pthread_create(&_monitorThreadHandle, nullptr, monitorThreadEntry, this) == 0;
    syslog(LOG_INFO, "QoPushPullQueueMonitor: Started...");
}

QoPushPullQueueMonitor::~QoPushPullQueueMonitor() {
    {
        const std::lock_guard guard(pause_mutex_);
        _runMonitor = false;
    }
    pause_ended_.notify_all();
    {
        const std::lock_guard thread_ended(_mutexMonitorActive);
        const std::lock_guard list(_mutexList);
        _monitoredQueues.clear();
        syslog(LOG_INFO, "QoPushPullQueueMonitor: Exited...");
    }
    // A device that is reset again and again would otherwise keep one stack for each reset.
    if (thread_started_) pthread_join(_monitorThreadHandle, nullptr);
}

void* QoPushPullQueueMonitor::monitorThreadEntry(void* monitor) {
    static_cast<QoPushPullQueueMonitor*>(monitor)->monitorThread();
    return nullptr;
}

// ---- looking ----

void QoPushPullQueueMonitor::monitorThread() {
    std::unique_lock active(_mutexMonitorActive);
    while (_runMonitor) {
        pause(settings_.poll);
        qo_reap_commands();
        if (_runMonitor) attempt([this] { return look_at_name(), true; });
        const bool stuck = _runMonitor && attempt([this] { return !poll_queues(); });
        if (!stuck) continue;
        attempt([this] { return report_failure(), true; });
        restart_service();
        pause(settings_.restart_grace);
        if (!_runMonitor.exchange(false)) continue;
        active.unlock();
        // exit() would wait for locks of a main thread that is stuck, and never come to the end.
        _exit(-1);
    }
}

// Sleeps, unless the monitor is to end: then not, or no longer.
void QoPushPullQueueMonitor::pause(std::chrono::milliseconds duration) {
    std::unique_lock guard(pause_mutex_);
    pause_ended_.wait_for(guard, duration, [this] { return !_runMonitor; });
}

void QoPushPullQueueMonitor::look_at_name() {
    const std::lock_guard list(_mutexList);
    if (!named_ || !qo_is_unlinked(named_->descriptor)) return;
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Queue %s was removed", named_->name.c_str());
    const Named lost = *std::exchange(named_, std::nullopt);
    lost.removed();
}

// One look at every queue. False when one has been full for too long; the queues behind it are not looked at then.
bool QoPushPullQueueMonitor::poll_queues() {
    const std::lock_guard list(_mutexList);
    for (const auto& queue : _monitoredQueues) {
        const time_t now = monotonic_seconds();
        const QoFullQueueStep step = queue->watch(now, settings_.full_for);
        if (step == QoFullQueueStep::drained) continue;
        syslog(LOG_WARNING, "QoPushPullQueueMonitor: A queue is full");
        queue->logStatus();
        if (step == QoFullQueueStep::waiting) continue;
        syslog(LOG_CRIT, "QoPushPullQueueMonitor: Queue full failure detected (queue full for %ld seconds)",
               static_cast<long>(now - queue->timeFull()));
        return false;
    }
    return true;
}

// ---- a queue that stays full ----

void QoPushPullQueueMonitor::restart_service() {
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Creating termination shellscript");
    std::optional<QoRestartScript> script;
    const bool made = attempt([&] {
        script.emplace(settings_.restart_script);
        if (!script->write(kRestartScript) || !script->is_ours()) return false;
        // The file can be run as it is: a failure is not looked at.
        run("chmod +x " + settings_.restart_script, settings_.command_limit);
        return true;
    });
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Terminating...");
    const bool started = made && attempt([&] {
                             return script->is_ours() && run(settings_.restart_script + " &", settings_.command_limit);
                         });
    if (started) return;
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: The service is signalled without the restart script");
    kill(getpid(), SIGUSR1);
}
