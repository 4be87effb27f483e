// Starting, driving and ending the real service.
#include "service_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include "isolation.h"

namespace {

constexpr char kProgram[] = QO_PUSHPULL_PROGRAM;
constexpr long kFullMessages = 64;
constexpr long kMessageSize = 262144;  // bytes

mq_attr attributes(long messages) {
    mq_attr chosen{};
    chosen.mq_maxmsg = messages;
    chosen.mq_msgsize = kMessageSize;
    return chosen;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Takes the place of a variable of the same name.
void set_variable(std::vector<std::string>& variables, const std::string& variable) {
    const std::string name = variable.substr(0, variable.find('=') + 1);
    std::erase_if(variables, [&name](const std::string& former) { return former.starts_with(name); });
    variables.push_back(variable);
}

std::vector<std::string> environment_with(const QoServiceEvents& events, const std::vector<std::string>& further) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) variables.emplace_back(*variable);
    const char* path = getenv("PATH");
    set_variable(variables, "PATH=" + events.stand_in_directory() + ":" + (path != nullptr ? path : "/usr/bin:/bin"));
    set_variable(variables, "NOTIFY_SOCKET=" + events.notify_socket());
    for (const std::string& variable : further) set_variable(variables, variable);
    return variables;
}

timespec deadline_in(std::chrono::seconds time) {
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += time.count();
    return deadline;
}

size_t entries(const std::string& folder) {
    const std::filesystem::directory_iterator found(folder);
    return static_cast<size_t>(std::distance(begin(found), end(found)));
}

}  // namespace

QoServiceProcess::~QoServiceProcess() {
    if (running()) {
        kill(process_, SIGKILL);
        wait_for_end();
    }
    if (queue_ != -1) mq_close(queue_);
}

void QoServiceProcess::make_queue(const std::string& suffix, long messages) {
    suffix_ = suffix;
    const std::string name = "/pushpull" + suffix;
    mq_attr small = attributes(messages);
    queue_ = mq_open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0660, &small);
    if (queue_ == -1) throw std::runtime_error("cannot make " + name + ": " + strerror(errno));
}

bool QoServiceProcess::may_make_full_queue() {
    constexpr char kProbe[] = "/qo_full_queue_probe";
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    rlimit before{};
    getrlimit(RLIMIT_MSGQUEUE, &before);
    if (setrlimit(RLIMIT_MSGQUEUE, &unlimited) != 0) return false;
    mq_attr full = attributes(kFullMessages);
    const mqd_t made = mq_open(kProbe, O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0660, &full);
    setrlimit(RLIMIT_MSGQUEUE, &before);
    if (made == -1) return false;
    mq_close(made);
    mq_unlink(kProbe);
    return true;
}

void QoServiceProcess::add_to_environment(const std::vector<std::string>& variables) {
    environment_.insert(environment_.end(), variables.begin(), variables.end());
}

void QoServiceProcess::start(const std::vector<std::string>& arguments, StandardFiles standard_files) {
    process_ = spawn(arguments, standard_files);
}

pid_t QoServiceProcess::spawn(const std::vector<std::string>& arguments, StandardFiles standard_files) {
    std::vector<std::string> command = run_by_;
    command.emplace_back(kProgram);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = environment_with(events_, environment_);
    const std::string output = events_.scratch() + "stdout";
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    for (int descriptor = 0; standard_files == StandardFiles::kClosed && descriptor < 3; ++descriptor)
        posix_spawn_file_actions_addclose(&files, descriptor);
    pid_t process = -1;
    const int error = posix_spawnp(&process, command.front().c_str(), &files, nullptr, pointers_to(command).data(),
                                   pointers_to(variables).data());
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " + command.front() + ": " + strerror(error));
    return process;
}

std::optional<int> QoServiceProcess::run_another(const std::vector<std::string>& arguments) {
    const pid_t first = std::exchange(process_, spawn(arguments, StandardFiles::kOpen));
    const std::optional<int> status = wait_for_end();
    if (!status) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    process_ = first;
    return status;
}

testing::AssertionResult QoServiceProcess::start_and_wait(const std::vector<std::string>& arguments) {
    const size_t notifications = events_.notifications().size();
    if (queue_ == -1 && !may_make_full_queue()) {
        make_queue();
        std::cout << "the queue was made with less than " << kFullMessages << " messages: the quota allows no more\n";
    }
    start(arguments);
    const testing::AssertionResult ready = events_.wait_for_notifications(notifications + 1);
    return ready ? wait_until_idle() : ready;
}

// The service drops lines that the log does not take in time, which may happen to the fence's on a busy machine: then
// there is another one.
testing::AssertionResult QoServiceProcess::wait_until_idle() {
    constexpr int kFences = 3;
    testing::AssertionResult done = testing::AssertionFailure();
    for (int fence = 0; fence < kFences && !done; ++fence) {
        const std::string text = R"({"function":"fence )" + std::to_string(++fences_) + R"("})";
        const testing::AssertionResult posted = post(text);
        if (!posted) return posted;
        done = events_.wait_for_log(
            LOG_DEBUG, "PushPullData : mq_receive: retval: " + std::to_string(text.size() + 1) + " , msg: " + text,
            std::chrono::milliseconds(kQoPatience) / kFences);
    }
    return done ? wait_until_receiving() : done;
}

testing::AssertionResult QoServiceProcess::wait_until_receiving() {
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (!waits_for_request()) {
        if (std::chrono::steady_clock::now() > deadline) return testing::AssertionFailure() << "the service is stuck";
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return testing::AssertionSuccess();
}

bool QoServiceProcess::settles(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (running() && std::chrono::steady_clock::now() < deadline) {
        // In this order: whoever has taken a message is not seen waiting until it is done with it.
        if (waiting_requests() == 0 && waits_for_request()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

bool QoServiceProcess::waits_for_request() const {
    // A thread that was given a message and has yet to wake up is in the call still, but no longer asleep.
    std::ifstream stat("/proc/" + std::to_string(process_) + "/stat");
    std::string line;
    std::getline(stat, line);
    constexpr std::string_view kAsleep = ") S ";
    if (line.find(kAsleep) == std::string::npos) return false;
    std::ifstream status("/proc/" + std::to_string(process_) + "/syscall");
    long system_call = -1;
    status >> system_call;
#ifdef QO_HOST_RECEIVE
    if (system_call == QO_HOST_RECEIVE) return true;
#endif
#ifdef SYS_mq_timedreceive_time64
    if (system_call == SYS_mq_timedreceive_time64) return true;
#endif
    return system_call == SYS_mq_timedreceive;
}

bool QoServiceProcess::running() const {
    siginfo_t ended{};
    return process_ > 0 && waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

void QoServiceProcess::send_signal(int signal_number) const { kill(process_, signal_number); }

std::optional<int> QoServiceProcess::wait_for_end(std::chrono::milliseconds timeout) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
    pollfd end{descriptor, POLLIN, 0};
    const int ended = poll(&end, 1, static_cast<int>(timeout.count()));
    close(descriptor);
    int status = 0;
    if (ended != 1 || waitpid(process_, &status, 0) != process_) return std::nullopt;
    process_ = -1;
    return status;
}

int QoServiceProcess::stop() {
    const testing::AssertionResult posted = post(R"({"function":"exit","arg":{"comp_id":1102,"buffer":"true"}})");
    EXPECT_TRUE(posted);
    if (const std::optional<int> status = wait_for_end(posted ? kQoPatience : std::chrono::seconds(0)))
        return WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    ADD_FAILURE() << "the service did not end by an \"exit\" request and had to be killed";
    kill(process_, SIGKILL);
    wait_for_end();
    return -1;
}

mqd_t QoServiceProcess::queue() {
    if (queue_ == -1) queue_ = mq_open(("/pushpull" + suffix_).c_str(), O_RDWR | O_CLOEXEC);
    return queue_;
}

testing::AssertionResult QoServiceProcess::post_bytes(const std::string& bytes) {
    const timespec deadline = deadline_in(kQoPatience);
    if (mq_timedsend(queue(), bytes.data(), bytes.size(), 1, &deadline) == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the service does not take a message of " << bytes.size()
                                       << " bytes: " << strerror(errno);
}

testing::AssertionResult QoServiceProcess::post(const std::string& text) {
    return post_bytes(std::string(text.c_str(), text.size() + 1));
}

long QoServiceProcess::waiting_requests() {
    mq_attr now{};
    mq_getattr(queue(), &now);
    return now.mq_curmsgs;
}

long QoServiceProcess::capacity() {
    mq_attr now{};
    mq_getattr(queue(), &now);
    return now.mq_maxmsg;
}

std::optional<std::string> QoServiceProcess::take_request() {
    std::string bytes(kMessageSize, '\0');
    const timespec at_once{};
    const ssize_t length = mq_timedreceive(queue(), bytes.data(), bytes.size(), nullptr, &at_once);
    if (length < 0) return std::nullopt;
    bytes.resize(strnlen(bytes.data(), static_cast<size_t>(length)));
    return bytes;
}

std::string QoServiceProcess::standard_output() const {
    std::ostringstream text;
    text << std::ifstream(events_.scratch() + "stdout").rdbuf();
    return text.str();
}

size_t QoServiceProcess::resident_kib() const {
    std::ifstream memory("/proc/" + std::to_string(process_) + "/statm");
    size_t total = 0;
    size_t resident = 0;
    memory >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::chrono::nanoseconds QoServiceProcess::processor_time() const {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &used) != 0)
        throw std::runtime_error("the processor time of the service is unknown");
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

size_t QoServiceProcess::open_descriptors() const { return entries("/proc/" + std::to_string(process_) + "/fd"); }
size_t QoServiceProcess::threads() const { return entries("/proc/" + std::to_string(process_) + "/task"); }

std::vector<pid_t> QoServiceProcess::children() const {
    std::vector<pid_t> found;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process_) + "/task")) {
        std::ifstream list(thread.path() / "children");
        for (pid_t process = 0; list >> process;) found.push_back(process);
    }
    return found;
}

void ServiceProcess::SetUp() {
    if (const std::string reason = qo_missing_isolation(); !reason.empty()) GTEST_SKIP() << reason;
    service_.emplace();
}

void ServiceProcess::TearDown() {
    if (service_ && service_->running()) EXPECT_EQ(service_->stop(), 0);
}

void RunningService::SetUp() {
    ServiceProcess::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(service().start_and_wait());
}
