// Running the built pushpullctl on a pseudo terminal.
#include "pushpullctl_terminal.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "service_process.h"

namespace {

constexpr char kProgram[] = QO_PUSHPULLCTL_PROGRAM;
constexpr std::string_view kBegin = "\033[H";
constexpr std::string_view kEnd = "\033[J";

winsize size_of(unsigned short columns, unsigned short rows) {
    winsize size{};
    size.ws_col = columns;
    size.ws_row = rows;
    return size;
}

/// Without escape sequences and carriage returns.
std::string plain(std::string_view text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\033')
            i = std::min(text.find_first_of("mKJH", i), text.size() - 1);
        else if (text[i] != '\r')
            result += text[i];
    return result;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

}  // namespace

PushpullctlTerminal::PushpullctlTerminal(std::vector<std::string> arguments, unsigned short columns,
                                         unsigned short rows) {
    arguments.insert(arguments.begin(), "pushpullctl");
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    setenv("TERM", "xterm", 1);
    const winsize size = size_of(columns, rows);
    process_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (process_ == 0) {
        execv(kProgram, words.data());
        _exit(127);
    }
    if (process_ < 0) throw std::runtime_error("no pseudo terminal");
}

PushpullctlTerminal::~PushpullctlTerminal() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(terminal_);
}

void PushpullctlTerminal::press(const std::string& keys) const {
    EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void PushpullctlTerminal::resize(unsigned short columns, unsigned short rows) const {
    const winsize size = size_of(columns, rows);
    EXPECT_EQ(ioctl(terminal_, TIOCSWINSZ, &size), 0);
}

std::vector<std::string> PushpullctlTerminal::screen() const {
    const size_t end = output_.rfind(kEnd);
    const size_t begin = end == std::string::npos ? end : output_.rfind(kBegin, end);
    std::vector<std::string> lines;
    if (begin == std::string::npos) return lines;
    const std::string text = plain(std::string_view(output_).substr(begin, end - begin));
    for (size_t line = 0, feed = 0; (feed = text.find('\n', line)) != std::string::npos; line = feed + 1)
        lines.push_back(text.substr(line, feed - line));
    return lines;
}

/// @return false at the end, or when nothing comes any more
bool PushpullctlTerminal::read_more() {
    pollfd input{terminal_, POLLIN, 0};
    if (poll(&input, 1, static_cast<int>(std::chrono::milliseconds(kQoPatience).count())) <= 0) return false;
    char piece[4096];
    const ssize_t length = read(terminal_, piece, sizeof piece);
    if (length > 0) output_.append(piece, static_cast<size_t>(length));
    return length > 0;
}

testing::AssertionResult PushpullctlTerminal::wait_for_screen(
    const std::function<bool(const std::vector<std::string>&)>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (!holds(screen()))
        if (std::chrono::steady_clock::now() > deadline || !read_more())
            return testing::AssertionFailure() << "the last screen: " << joined(screen()) << output_;
    return testing::AssertionSuccess();
}

testing::AssertionResult PushpullctlTerminal::wait_for_text(const std::string& text) {
    return wait_for_screen(
        [&](const std::vector<std::string>& lines) { return joined(lines).find(text) != std::string::npos; });
}

bool PushpullctlTerminal::has_shown(const std::string& text) const {
    return plain(output_).find(text) != std::string::npos;
}

int PushpullctlTerminal::wait() {
    while (read_more()) {
    }
    int status = 0;
    // Its end of the terminal is closed a moment before it has ended.
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
