// Running the built pushpullctl and taking its output.
#include "pushpullctl_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

constexpr char kProgram[] = QO_PUSHPULLCTL_PROGRAM;
constexpr int kDidNotEnd = -1000;

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() {
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    }
};

/// Signals have their usual effect in the program, whatever this test was started with.
void set_usual_signals(posix_spawnattr_t& attributes) {
    sigset_t usual;
    sigemptyset(&usual);
    posix_spawnattr_setsigmask(&attributes, &usual);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGPIPE}) sigaddset(&usual, number);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

}  // namespace

PushpullctlRun::PushpullctlRun(std::vector<std::string> arguments, const std::string& input, Reader reader)
    : kind_(reader) {
    Pipe in;
    Pipe out;
    Pipe err;
    output_ = out.ends[0];
    messages_ = err.ends[0];
    if (kind_ == Reader::full_device) {
        close(out.ends[1]);
        out.ends[1] = open("/dev/full", O_WRONLY | O_CLOEXEC);
    }
    spawn(std::move(arguments), in.ends[0], out.ends[1], err.ends[1]);
    close(in.ends[0]);
    close(out.ends[1]);
    close(err.ends[1]);
    if (write(in.ends[1], input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        ADD_FAILURE() << "input was not taken";
    close(in.ends[1]);
    stop_ = eventfd(0, EFD_CLOEXEC);
    reader_ = std::thread([this] { read_all(); });
}

void PushpullctlRun::spawn(std::vector<std::string> arguments, int input, int output, int messages) {
    arguments.insert(arguments.begin(), "pushpullctl");
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, messages, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    set_usual_signals(attributes);
    const int error = posix_spawn(&process_, kProgram, &files, &attributes, words.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) throw std::runtime_error(std::string("cannot start ") + kProgram + ": " + strerror(error));
}

PushpullctlRun::~PushpullctlRun() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    const uint64_t one = 1;
    EXPECT_EQ(write(stop_, &one, sizeof one), static_cast<ssize_t>(sizeof one));
    reader_.join();
    close_output();
    close(messages_);
    close(stop_);
}

void PushpullctlRun::read_all() {
    pollfd ends[] = {{kind_ == Reader::reads ? output_ : -1, POLLIN, 0}, {messages_, POLLIN, 0}, {stop_, POLLIN, 0}};
    std::string* const texts[] = {&output_text_, &messages_text_};
    while ((ends[0].fd != -1 || ends[1].fd != -1) && poll(ends, 3, -1) > 0 && ends[2].revents == 0) {
        for (int index = 0; index < 2; ++index) {
            if (ends[index].revents == 0) continue;
            char piece[65536];
            const ssize_t length = read(ends[index].fd, piece, sizeof piece);
            const std::lock_guard<std::mutex> guard(mutex_);
            if (length > 0)
                texts[index]->append(piece, static_cast<size_t>(length));
            else
                ends[index].fd = -1;
            changed_.notify_all();
        }
    }
}

int PushpullctlRun::wait() {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
    pollfd end{descriptor, POLLIN, 0};
    const int ended = poll(&end, 1, static_cast<int>(std::chrono::milliseconds(kQoPatience).count()));
    close(descriptor);
    int status = 0;
    if (ended != 1 || waitpid(process_, &status, 0) != process_) {
        ADD_FAILURE() << "pushpullctl does not end; it said: " << messages();
        return kDidNotEnd;
    }
    process_ = -1;
    // Nobody else has the other ends: the guardian gives them up when it starts.
    reader_.join();
    reader_ = std::thread([] {});
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string PushpullctlRun::output() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return output_text_;
}

std::string PushpullctlRun::messages() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return messages_text_;
}

testing::AssertionResult PushpullctlRun::wait_for(const std::string& text, const std::string& where) const {
    const std::string& seen = where == "output" ? output_text_ : messages_text_;
    std::unique_lock<std::mutex> guard(mutex_);
    const auto holds = [&] { return seen.find(text) != std::string::npos; };
    if (changed_.wait_for(guard, kQoPatience, holds)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no \"" << text << "\" in the " << where << ": " << seen;
}

testing::AssertionResult PushpullctlRun::wait_for_output(const std::string& text) const {
    return wait_for(text, "output");
}

testing::AssertionResult PushpullctlRun::wait_for_messages(const std::string& text) const {
    return wait_for(text, "messages");
}

pid_t PushpullctlRun::guardian() const {
    const std::string process = std::to_string(process_);
    std::ifstream children("/proc/" + process + "/task/" + process + "/children");
    pid_t child = -1;
    children >> child;
    return child;
}

void PushpullctlRun::send_signal(int signal_number) const { kill(process_, signal_number); }

void PushpullctlRun::close_output() {
    if (output_ != -1) close(output_);
    output_ = -1;
}

PushpullctlResult run_pushpullctl(const std::vector<std::string>& arguments, const std::string& input) {
    PushpullctlRun run(arguments, input);
    const int status = run.wait();
    return {status, run.output(), run.messages()};
}

std::vector<std::string> queues_of_clients() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/mqueue")) {
        const std::string name = entry.path().filename();
        if (name.rfind("pushpullctl", 0) == 0) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

testing::AssertionResult is_not_registered(QoServiceProcess& service, int32_t comp_id) {
    const std::string id = std::to_string(comp_id);
    const testing::AssertionResult posted =
        service.post(R"({"function":"get","arg":{"comp_id":)" + id + R"(,"buffer":"/is_not_registered"}})");
    if (!posted) return posted;
    return service.events().wait_for_log(
        LOG_ERR, "comp_get: Component not Registered: ncomp_id=" + id + ", get_data = /is_not_registered");
}
