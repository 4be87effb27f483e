// Starting a child process, reading its lines as they come, and ending it.
#include "demo_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

namespace {

volatile sig_atomic_t stop_requested = 0;

void request_stop(int) { stop_requested = 1; }

[[noreturn]] void fail(const char* what) { throw NotSeen(std::string(what) + ": " + strerror(errno)); }

int milliseconds_until(DemoClock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - DemoClock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

// Our environment with `changes` put over it.
std::vector<std::string> changed_environment(const std::vector<std::string>& changes) {
    std::vector<std::string> environment = changes;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string name(*entry, strcspn(*entry, "=") + 1);
        const auto changed = [&name](const std::string& change) { return change.compare(0, name.size(), name) == 0; };
        if (std::none_of(changes.begin(), changes.end(), changed)) environment.emplace_back(*entry);
    }
    return environment;
}

std::vector<char*> null_terminated(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// Between fork and exec: nothing here allocates, since other threads of the demo may hold a lock.
[[noreturn]] void become(char** command, char** environment, int input, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    // A process group of its own: Ctrl-C is for the demo, which then ends its children itself.
    setpgid(0, 0);
    execve(command[0], command, environment);
    static const char message[] = "the program cannot be run\n";
    _exit(write(STDERR_FILENO, message, sizeof message - 1) < 0 ? 126 : 127);
}

}  // namespace

void end_waits_on_signals() {
    struct sigaction action = {};
    action.sa_handler = request_stop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a component that has ended shows in its output
}

bool interrupted() { return stop_requested != 0; }

bool readable(int descriptor, DemoClock::time_point deadline) {
    for (;;) {
        if (interrupted()) throw NotSeen("interrupted by a signal");
        pollfd waiting = {descriptor, POLLIN, 0};
        const int ready = poll(&waiting, 1, milliseconds_until(deadline));
        if (ready >= 0) return ready > 0;
        if (errno != EINTR) fail("poll");
    }
}

DemoProcess::DemoProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    const std::vector<std::string> whole_environment = changed_environment(environment);
    std::vector<char*> arguments = null_terminated(command);
    std::vector<char*> variables = null_terminated(whole_environment);
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) fail("pipe");
    pid_ = fork();
    if (pid_ == 0) become(arguments.data(), variables.data(), input[0], output[1]);
    close(input[0]);
    close(output[1]);
    to_child_ = input[1];
    from_child_ = output[0];
    if (pid_ < 0) fail("fork");
    end_watch_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    if (end_watch_ < 0) fail("pidfd_open");
}

DemoProcess::~DemoProcess() {
    if (pid_ > 0 && !wait_status_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    for (const int descriptor : {end_watch_, to_child_, from_child_})
        if (descriptor >= 0) close(descriptor);
}

void DemoProcess::write_line(const std::string& line) {
    const std::string text = line + "\n";
    if (write(to_child_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) fail("write to a component");
}

std::optional<std::string> DemoProcess::take_buffered_line() {
    const size_t end = buffered_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string line = buffered_.substr(0, end);
    buffered_.erase(0, end + 1);
    return line;
}

std::optional<std::string> DemoProcess::next_line(DemoClock::time_point deadline) {
    for (;;) {
        if (auto line = take_buffered_line()) return line;
        if (!readable(from_child_, deadline)) return std::nullopt;
        char bytes[4096];
        const ssize_t length = read(from_child_, bytes, sizeof bytes);
        if (length <= 0) return std::nullopt;
        buffered_.append(bytes, static_cast<size_t>(length));
    }
}

std::optional<int> DemoProcess::wait_for_end(DemoClock::time_point deadline) {
    if (wait_status_) return wait_status_;
    if (!readable(end_watch_, deadline)) return std::nullopt;
    int status = 0;
    if (waitpid(pid_, &status, 0) != pid_) fail("waitpid");
    wait_status_ = status;
    return wait_status_;
}
