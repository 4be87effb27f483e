// The replaced syslog().
#include "log_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <ostream>
#include <utility>

namespace {

std::mutex capture_mutex;
std::vector<QoLogLine> captured_lines;            // guarded by capture_mutex
int copy_descriptor = -1;                         // guarded by capture_mutex
std::function<void(const QoLogLine&)> line_look;  // guarded by capture_mutex

// A level digit, the text, and a NUL, which no line contains.
void write_copy(int descriptor, const QoLogLine& line) {
    std::string copy = std::to_string(line.level) + line.text;
    copy.push_back('\0');
    if (write(descriptor, copy.data(), copy.size()) != static_cast<ssize_t>(copy.size())) abort();
}

// The caller holds the mutex.
bool keep(int level, const char* text) try {
    captured_lines.push_back(qo_log_line(level, text));
    if (copy_descriptor >= 0) write_copy(copy_descriptor, captured_lines.back());
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

__attribute__((format(printf, 2, 0))) void capture(int priority, const char* format, va_list arguments) {
    char* printed = nullptr;
    // The analyzer does not see that the callers started the list.
    if (vasprintf(&printed, format, arguments) < 0) abort();  // NOLINT(clang-analyzer-valist.Uninitialized)
    const std::unique_ptr<char, decltype(&free)> text(printed, &free);
    std::function<void(const QoLogLine&)> look;
    {
        const std::lock_guard<std::mutex> guard(capture_mutex);
        // A test may let allocations fail. Nothing is thrown, which syslog() never does: where one failed the second
        // attempt keeps the line, where all do it is lost.
        [[maybe_unused]] const bool kept = keep(LOG_PRI(priority), text.get()) || keep(LOG_PRI(priority), text.get());
        if (line_look) look = line_look;
    }
    // It may log in turn.
    if (look) look(qo_log_line(LOG_PRI(priority), text.get()));
}

}  // namespace

extern "C" {
void __wrap_syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
void __wrap___syslog_chk(int priority, int flag, const char* format, ...) __attribute__((format(printf, 3, 4)));

void __wrap_syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}

void __wrap___syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}
}

QoLogLine qo_log_line(int level, const std::string& text) {
    for (const std::string prefix : {"PushPull:", "PushPull DENY:", "LOG:"}) {
        if (!text.starts_with(prefix)) continue;
        const size_t at = text.find('@');
        const size_t after = text.find_first_not_of("0123456789", at + 1);
        const std::string function = text.substr(prefix.size(), at - prefix.size());
        const bool numbered = at != std::string::npos && after > at + 1 && after != std::string::npos &&
                              text[after] == ':' && function.find(' ', 1) == std::string::npos;
        if (!numbered) continue;
        if (prefix == "LOG:") return {level, text.substr(0, at) + "@#" + text.substr(after)};
        return {level, prefix + "*@#" + text.substr(after), function};
    }
    return {level, text};
}

void PrintTo(const QoLogLine& line, std::ostream* stream) {
    *stream << "<" << line.level << "> \"" << line.text << '"';
    if (!line.operation.empty()) *stream << " of " << line.operation;
}

QoLogCapture::QoLogCapture() { clear(); }

QoLogCapture::~QoLogCapture() { on_line(nullptr); }

std::vector<QoLogLine> QoLogCapture::lines() const {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    return captured_lines;
}

std::vector<QoLogLine> QoLogCapture::lines_above_debug() const {
    std::vector<QoLogLine> all = lines();
    std::erase_if(all, [](const QoLogLine& line) { return line.level == LOG_DEBUG; });
    return all;
}

bool QoLogCapture::contains(int level, const std::string& text) const {
    const std::vector<QoLogLine> all = lines();
    return std::find(all.begin(), all.end(), QoLogLine{level, text}) != all.end();
}

void QoLogCapture::clear() {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    captured_lines.clear();
}

void QoLogCapture::on_line(std::function<void(const QoLogLine& line)> look) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    line_look = std::move(look);
}

void QoLogCapture::copy_to(int descriptor) {
    const std::lock_guard<std::mutex> guard(capture_mutex);
    copy_descriptor = descriptor;
}

std::vector<QoLogLine> QoLogCapture::read_copies(int descriptor) {
    std::vector<QoLogLine> copies;
    std::string copy;
    for (char character = 0; read(descriptor, &character, 1) == 1;) {
        if (character != '\0') {
            copy.push_back(character);
        } else {
            copies.push_back({copy.at(0) - '0', copy.substr(1)});
            copy.clear();
        }
    }
    return copies;
}
