// The replaced system() and qo_start_shell().
#include "shell_capture.h"

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <mutex>
#include <new>
#include <utility>

namespace {
std::mutex capture_mutex;
std::vector<std::string> captured_commands;  // guarded by capture_mutex
int next_result = 0;                         // guarded by capture_mutex
QoShellCapture::Start replaced_start;        // guarded by capture_mutex

int capture(const char* command) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    if (command != nullptr) captured_commands.emplace_back(command);
    return next_result;
}

QoShellCapture::Start captured_start() {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    return replaced_start;
}

void reset() {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    captured_commands.clear();
    next_result = 0;
    replaced_start = nullptr;
}

// A process that ends at once with that status.
pid_t start_nothing(int status) {
    if (status == -1) {
        errno = EAGAIN;
        return -1;
    }
    const pid_t process = _Fork();
    if (process == 0) _exit(WEXITSTATUS(status));
    return process;
}
}  // namespace

extern "C" int __wrap_system(const char* command) { return capture(command); }

extern "C" pid_t __wrap_qo_start_shell(const char* command, rlim_t file_bytes) try {
    const int result = capture(command);
    const QoShellCapture::Start start = captured_start();
    return start ? start(command, file_bytes) : start_nothing(result);
} catch (const std::bad_alloc&) {  // a test lets allocations fail
    errno = ENOMEM;
    return -1;
}

QoShellCapture::QoShellCapture() { reset(); }

QoShellCapture::~QoShellCapture() { reset(); }

std::vector<std::string> QoShellCapture::commands() const {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    return captured_commands;
}

void QoShellCapture::set_result(int result) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    next_result = result;
}

void QoShellCapture::replace_start(Start start) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    replaced_start = std::move(start);
}
