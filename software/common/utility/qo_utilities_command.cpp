// Running a shell command with a limit in time, without a lock.
#include "qo_utilities_command.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShortestNap{1};
constexpr milliseconds kLongestNap{20};
constexpr milliseconds kDeath{200};  // time for what was killed to be gone

// The processes that nobody waits for any more; 0 is a free place. Without a lock: a handler may have interrupted its
// holder. Half of the places are for those that were left behind.
std::array<std::atomic<pid_t>, size_t{2} * QO_MOST_STARTED_COMMANDS> unwaited{};
static_assert(std::atomic<pid_t>::is_always_lock_free);

/// The status of a process that has ended; nothing while it runs. It is reaped.
std::optional<int> status_of(pid_t process) {
    int status = 0;
    const pid_t ended = waitpid(process, &status, WNOHANG);
    if (ended == 0 || (ended == -1 && errno == EINTR)) return std::nullopt;
    return ended == process ? status : 0;  // somebody else has reaped it
}

/// Where there is no place left, nobody reaps the process.
void leave(pid_t process) {
    for (std::atomic<pid_t>& place : unwaited) {
        pid_t free = 0;
        if (place.compare_exchange_strong(free, process)) return;
    }
}

void nap(milliseconds time) {
    const timespec duration{time.count() / 1000, static_cast<long>(time.count() % 1000) * 1000000};
    nanosleep(&duration, nullptr);
}

milliseconds now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::chrono::seconds(time.tv_sec) + milliseconds(time.tv_nsec / 1000000);
}

std::optional<int> wait_for_end(pid_t process, milliseconds limit) {
    const milliseconds deadline = now() + limit;
    for (milliseconds pause = kShortestNap;; pause = std::min(pause * 2, kLongestNap)) {
        if (const std::optional<int> status = status_of(process)) return status;
        if (now() >= deadline) return std::nullopt;
        nap(pause);
    }
}

}  // namespace

QoCommandResult qo_run_command(const char* command, const QoCommandLimits& limits) noexcept {
    qo_reap_commands();
    const pid_t process = qo_start_shell(command, limits.file_bytes);
    if (process == -1) return {QoCommandEnd::not_started, errno};
    if (const std::optional<int> status = wait_for_end(process, limits.time)) return {QoCommandEnd::ended, *status};
    const bool killed = limits.past_time == QoPastLimit::killed;
    if (killed) kill(-process, SIGKILL);
    if (!killed || !wait_for_end(process, kDeath)) leave(process);
    return {QoCommandEnd::left_behind, 0};
}

int qo_start_command(const char* command) noexcept {
    qo_reap_commands();
    const auto living = std::count_if(unwaited.begin(), unwaited.end(), [](const auto& place) { return place != 0; });
    if (living >= QO_MOST_STARTED_COMMANDS) return EAGAIN;
    const pid_t process = qo_start_shell(command, RLIM_INFINITY);
    if (process == -1) return errno;
    leave(process);
    return 0;
}

void qo_reap_commands() noexcept {
    for (std::atomic<pid_t>& place : unwaited) {
        const pid_t process = place.exchange(0);
        if (process != 0 && !status_of(process)) leave(process);
    }
}
