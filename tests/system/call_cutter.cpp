// Stopping a process at its system calls, to kill it between two of them.
#include "call_cutter.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

constexpr int kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
constexpr int kCallStop = SIGTRAP | 0x80;  // of PTRACE_O_TRACESYSGOOD

void check(long result, const std::string& what) {
    if (result == -1) throw std::runtime_error(what + ": " + strerror(errno));
}

bool is_receive(uint64_t number) {
#ifdef SYS_mq_timedreceive_time64
    if (number == SYS_mq_timedreceive_time64) return true;
#endif
    return number == SYS_mq_timedreceive;
}

}  // namespace

QoCallCutter::QoCallCutter(pid_t process, QoSaver saver) : process_(process), saver_(saver) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task"))
        seize(static_cast<pid_t>(std::stol(task.path().filename())));
    if (saver == QoSaver::kMainThread) {
        saving_thread_ = process;
        interrupt_main_thread();
    }
}

void QoCallCutter::seize(pid_t thread) {
    check(ptrace(PTRACE_SEIZE, thread, nullptr, kOptions), "PTRACE_SEIZE");
    threads_.insert(thread);
}

// A seized thread runs on until it meets an event; only from a stop can its system calls be followed.
void QoCallCutter::interrupt_main_thread() {
    check(ptrace(PTRACE_INTERRUPT, process_, nullptr, nullptr), "PTRACE_INTERRUPT");
    int status = 0;
    check(waitpid(process_, &status, __WALL), "waitpid");
    resume(process_);
}

size_t QoCallCutter::cut(size_t call, const std::function<void()>& cause_save) {
    cause_save();
    for (bool killed = false; !killed;) {
        int status = 0;
        const pid_t thread = waitpid(-1, &status, __WALL);
        check(thread, "waitpid");
        killed = attend(thread, status, call);
    }
    kill_all();
    return calls_;
}

bool QoCallCutter::attend(pid_t thread, int status, size_t call) {
    if (!WIFSTOPPED(status)) {
        threads_.erase(thread);
        if (thread == process_) throw std::runtime_error("the service has ended by itself");
        return false;
    }
    const bool is_new = threads_.insert(thread).second;
    if (is_new && saver_ == QoSaver::kTimerThread && saving_thread_ == -1) {
        saving_thread_ = thread;
        counting_ = true;
    }
    const int event = status >> 16;
    if (event == 0 && WSTOPSIG(status) == kCallStop) {
        if (at_call_stop(thread, call)) return true;
        resume(thread);
    } else {
        resume(thread, event == 0 ? WSTOPSIG(status) : 0);
    }
    return false;
}

bool QoCallCutter::at_call_stop(pid_t thread, size_t call) {
    __ptrace_syscall_info info{};
    check(ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info), "PTRACE_GET_SYSCALL_INFO");
    if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
        counting_ = counting_ || (is_receive(current_call_) && info.exit.rval > 0);
        return false;
    }
    current_call_ = info.entry.nr;
    if (!counting_) return false;
    const bool at_end = saver_ == QoSaver::kMainThread ? is_receive(current_call_) : current_call_ == SYS_exit;
    if (at_end || calls_ == call) return true;
    ++calls_;
    return false;
}

void QoCallCutter::resume(pid_t thread, int signal_number) const {
    const auto request = thread == saving_thread_ ? PTRACE_SYSCALL : PTRACE_CONT;
    ptrace(request, thread, nullptr, signal_number);  // fails only for a thread that is just being killed
}

// A process is not dead before its tracer has waited for each of its threads.
void QoCallCutter::kill_all() {
    check(kill(process_, SIGKILL), "kill");
    for (const pid_t thread : threads_) {
        int status = 0;
        while (thread != process_ && waitpid(thread, &status, __WALL) == thread && WIFSTOPPED(status)) continue;
    }
}
