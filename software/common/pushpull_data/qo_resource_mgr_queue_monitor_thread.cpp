// The thread that looks at the supervised queues, and what it does about one that stays full.
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <fstream>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>

#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_sigterm_mask.h"
#include "qo_utilities_command.h"

namespace {

constexpr const char* kDiagnosticCommands[] = {"top -b -n 1 | grep qo", "top -bi -n 1", "ps -AF | grep qo", "pstree"};

// SIGUSR1 makes the service log where it is stuck and reboot the device.
constexpr char kRestartScript[] = "sleep 2;\npkill -SIGUSR1 qo_pushpull\n";

time_t monotonic_seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

void run(const std::string& command) {
    // A failure is not looked at: the next step is tried whatever became of this one.
    [[maybe_unused]] const int result = system(command.c_str());
}

std::optional<std::string> read_whole(const std::string& path) {
    std::ifstream file(path);
    if (!file) return std::nullopt;
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace

// ---- life ------------------------------------------------------------------------------------

QoPushPullQueueMonitor::QoPushPullQueueMonitor(QoQueueMonitorSettings settings)
    : _monitorThreadHandle(), _runMonitor(true), settings_(std::move(settings)), thread_started_(false) {
    const QoSigtermMask blocked(SIG_BLOCK);
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

// ---- looking ---------------------------------------------------------------------------------

void QoPushPullQueueMonitor::monitorThread() {
    std::unique_lock active(_mutexMonitorActive);
    while (_runMonitor) {
        pause(settings_.poll);
        qo_reap_commands();
        if (!_runMonitor || poll_queues()) continue;
        restart_service();
        pause(settings_.restart_grace);
        if (!_runMonitor.exchange(false)) continue;
        active.unlock();
        exit(-1);
    }
}

// Sleeps, unless the monitor is to end: then not, or no longer.
void QoPushPullQueueMonitor::pause(std::chrono::milliseconds duration) {
    std::unique_lock guard(pause_mutex_);
    pause_ended_.wait_for(guard, duration, [this] { return !_runMonitor; });
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
        report_failure(*queue, now);
        return false;
    }
    return true;
}

// ---- a queue that stays full -----------------------------------------------------------------

void QoPushPullQueueMonitor::report_failure(const QoPushPullMonitoredQueue& queue, time_t now) {
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Queue full failure detected (queue full for %ld seconds)",
           static_cast<long>(now - queue.timeFull()));
    for (const char* command : kDiagnosticCommands) systemCommand(command);
}

void QoPushPullQueueMonitor::restart_service() {
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Creating termination shellscript");
    std::ofstream(settings_.restart_script, std::ios::trunc) << kRestartScript;
    run("chmod +x " + settings_.restart_script);
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Terminating...");
    run(settings_.restart_script + " &");
}

void QoPushPullQueueMonitor::systemCommand(const std::string& command) {
    run(command + " >> " + settings_.command_output);
    logSystemCommandResult(command);
}

void QoPushPullQueueMonitor::logSystemCommandResult(const std::string& command) {
    const std::optional<std::string> output = read_whole(settings_.command_output);
    if (!output) return;
    // A file that stays is read again with the next command's output; nothing else comes of it.
    [[maybe_unused]] const int removed = remove(settings_.command_output.c_str());
    generateLogOutput(command, *output);
}

void QoPushPullQueueMonitor::generateLogOutput(const std::string& command, const std::string& output) {
    syslog(LOG_NOTICE, "---- Output from system command %s ----", command.c_str());
    std::istringstream lines(output);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) syslog(LOG_NOTICE, "%03d: %s", ++number, line.c_str());
    }
}
