// What runs on the device, for the log. In a thread of its own, which may hang.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>

#include "qo_pushpull_descriptor.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_utilities_command.h"

namespace {

constexpr const char* kCommands[] = {"top -b -n 1 | grep qo", "top -bi -n 1", "ps -AF | grep qo", "pstree"};
// A command that prints for ever does not fill the disk.
constexpr rlim_t kOutputFileBytes = 1048576;
// What the log takes of one command's output; the number of bytes beyond is logged.
constexpr size_t kMostBytes = 262144;
constexpr int kMostLines = 2000;
constexpr size_t kMostLineBytes = 8192;
constexpr std::chrono::milliseconds kLook{20};  // between two at the run flag

struct Output {
    std::string text;
    size_t left_out;  // bytes of the file behind the text
};

/// Nothing when it cannot be opened or is no file: a pipe would be waited for.
std::optional<Output> read_output(const std::string& path) {
    const QoDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    const auto size = static_cast<size_t>(status.st_size);
    Output output{std::string(std::min(size, kMostBytes), '\0'), 0};
    size_t length = 0;
    while (length < output.text.size()) {
        const ssize_t count = read(file.get(), output.text.data() + length, output.text.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        length += static_cast<size_t>(count);
    }
    output.text.resize(length);
    output.left_out = size - length;
    return output;
}

// The shell would wait for the reader of a pipe, and write wherever a link leads.
void remove_what_is_no_file(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return;
    const int error = unlink(path.c_str()) == 0 ? 0 : errno;
    syslog(LOG_ERR, "QoPushPullQueueMonitor: %s is no file and had to be removed (error %d)", path.c_str(), error);
}

/// @return bytes of the line that were not logged
size_t log_line(int number, std::string_view line) {
    const std::string_view logged = line.substr(0, kMostLineBytes);
    syslog(LOG_NOTICE, "%03d: %.*s", number, static_cast<int>(logged.size()), logged.data());
    return line.size() - logged.size();
}

}  // namespace

/// What the thread of a report works with. The monitor may end before it.
struct QoPushPullQueueMonitor::Report {
    explicit Report(const QoQueueMonitorSettings& settings)
        : output(settings.command_output), command_limit(settings.command_limit) {}

    const std::string output;
    const std::chrono::milliseconds command_limit;
    std::atomic<bool> abandoned{false};  // no further command is begun
    std::atomic<bool> done{false};
};

// Waits for the end of the report no longer than it may take: a disk that hangs holds its thread for ever.
void QoPushPullQueueMonitor::report_failure() {
    const auto report = std::make_shared<Report>(settings_);
    std::thread([report] { run_commands(*report); }).detach();
    const auto deadline = std::chrono::steady_clock::now() + settings_.report_limit;
    while (!report->done && _runMonitor && std::chrono::steady_clock::now() < deadline) pause(kLook);
    report->abandoned = true;
    if (report->done || !_runMonitor) return;
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: The diagnostics are stuck and were left behind");
}

void QoPushPullQueueMonitor::run_commands(Report& report) noexcept {
    for (const char* command : kCommands) {
        if (report.abandoned) break;
        attempt([&] { return systemCommand(report, command), true; });
    }
    report.done = true;
}

void QoPushPullQueueMonitor::systemCommand(const Report& report, const char* command) {
    remove_what_is_no_file(report.output);
    const std::string text = std::string(command) + " >> " + report.output;
    const QoCommandResult result =
        qo_run_command(text.c_str(), {report.command_limit, QoPastLimit::killed, kOutputFileBytes});
    if (result.end == QoCommandEnd::left_behind) {
        syslog(LOG_ERR, "QoPushPullQueueMonitor: System command %s was left behind after %lld ms", command,
               static_cast<long long>(report.command_limit.count()));
    } else if (result.end == QoCommandEnd::not_started) {
        syslog(LOG_ERR, "QoPushPullQueueMonitor: System command %s could not be started (error %d)", command,
               result.status);
    }
    logSystemCommandResult(report, command);
}

void QoPushPullQueueMonitor::logSystemCommandResult(const Report& report, const char* command) {
    const std::optional<Output> output = read_output(report.output);
    if (!output) return;
    // A file that stays is read again with the next command's output; nothing else comes of it.
    [[maybe_unused]] const int removed = remove(report.output.c_str());
    generateLogOutput(command, output->text, output->left_out);
}

void QoPushPullQueueMonitor::generateLogOutput(const char* command, std::string_view output, size_t left_out) {
    syslog(LOG_NOTICE, "---- Output from system command %s ----", command);
    int number = 0;
    while (!output.empty() && number < kMostLines) {
        const std::string_view line = output.substr(0, output.find('\n'));
        output.remove_prefix(std::min(output.size(), line.size() + 1));
        if (!line.empty()) left_out += log_line(++number, line);
    }
    left_out += output.size();
    if (left_out > 0) {
        syslog(LOG_NOTICE, "QoPushPullQueueMonitor: %zu bytes of the output of system command %s were left out",
               left_out, command);
    }
}
