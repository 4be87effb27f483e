#include "shell_capture.h"

#include <mutex>

namespace {
std::mutex capture_mutex;
std::vector<std::string> captured_commands;  // guarded by capture_mutex
int next_result = 0;                         // guarded by capture_mutex
}  // namespace

extern "C" int __wrap_system(const char* command) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    if (command != nullptr) captured_commands.emplace_back(command);
    return next_result;
}

QoShellCapture::QoShellCapture() {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    captured_commands.clear();
    next_result = 0;
}

std::vector<std::string> QoShellCapture::commands() const {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    return captured_commands;
}

void QoShellCapture::set_result(int result) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    next_result = result;
}
