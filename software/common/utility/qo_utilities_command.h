/// Shell commands that may never end: each is a process group of its own and is waited for with a limit or not at all.
/// A process that waits for a device does not even die when it is killed, so nothing here waits for a death.
#ifndef QO_UTILITIES_COMMAND_H
#define QO_UTILITIES_COMMAND_H

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>

/// What became of a command.
enum class QoCommandEnd {
    ended,        // by itself
    left_behind,  // it was still there when its time was over
    not_started,
};

struct QoCommandResult {
    QoCommandEnd end;
    int status;  // as waitpid() gives it when it ended, errno when it was not started, else 0
};

/// What is done with a command whose time is over.
enum class QoPastLimit {
    killed,  // with all that it started
    left_running,
};

/// Commands that qo_start_command lets live at a time.
inline constexpr int QO_MOST_STARTED_COMMANDS = 8;

/// How far a command may go.
struct QoCommandLimits {
    std::chrono::milliseconds time;
    QoPastLimit past_time = QoPastLimit::killed;
    rlim_t file_bytes = RLIM_INFINITY;  // what writes a larger file is ended by SIGXFSZ
};

/// Runs a command with the shell, as system() does, and waits for it, but no longer than it may take.
/// Any thread; safe in a signal's handler.
QoCommandResult qo_run_command(const char* command, const QoCommandLimits& limits) noexcept;

/// Starts a command with the shell and does not wait for it. What it becomes is nobody's business but
/// qo_reap_commands'. Any thread; safe in a signal's handler.
/// @return 0; EAGAIN when QO_MOST_STARTED_COMMANDS have not ended yet; else errno. Nothing was started then.
int qo_start_command(const char* command) noexcept;

/// Takes the ended ones of the commands that nobody waits for any more off the kernel's list of processes. Does not
/// wait. Any thread; to be called now and then.
void qo_reap_commands() noexcept;

/// Starts the shell on a command, in a process group of its own whose number is the process's: no signal blocked or
/// ignored, only the standard descriptors open, files made for the service's user alone and none larger than
/// `file_bytes`. Waiting for it is the caller's. Any thread; safe in a signal's handler.
/// @return the process; -1 with errno
extern "C" pid_t qo_start_shell(const char* command, rlim_t file_bytes) noexcept;

#endif
