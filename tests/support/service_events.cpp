// Collecting what a running service lets the outside see.
#include "service_events.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace {

constexpr size_t kLargestDatagram = 300000;  // bytes; the kernel's limit is about 212000
constexpr char kLogSocket[] = "/dev/log";
constexpr const char* kStandIns[] = {"systemctl", "reboot", "pkill", "top", "ps", "pstree"};

int bind_datagram_socket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot bind " + path + ": " + strerror(errno));
    const int size = 8 << 20;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
    return descriptor;
}

template <typename Take>
void drain(int descriptor, std::string& buffer, const Take& take) {
    for (;;) {
        const ssize_t length = read(descriptor, buffer.data(), buffer.size());
        if (length < 0) return;
        take(buffer.substr(0, static_cast<size_t>(length)));
    }
}

}  // namespace

QoServiceEvents::QoServiceEvents() : buffer_(kLargestDatagram, '\0') {
    log_socket_ = bind_datagram_socket(kLogSocket);
    notify_socket_ = bind_datagram_socket(notify_socket());
    make_stand_ins();
    wake_event_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    listener_ = std::thread([this] { listen(); });
}

QoServiceEvents::~QoServiceEvents() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
    }
    wake_listener();
    listener_.join();
    close_log();
    for (const int descriptor : {notify_socket_, command_pipe_, wake_event_}) close(descriptor);
}

std::string QoServiceEvents::stand_in_directory() const { return scratch() + "bin"; }
std::string QoServiceEvents::notify_socket() const { return scratch() + "notify"; }

// Each stand-in writes one line into a pipe: its name and its arguments.
void QoServiceEvents::make_stand_ins() {
    const std::string pipe = scratch() + "commands";
    if (mkfifo(pipe.c_str(), 0600) != 0) throw std::runtime_error("cannot make " + pipe);
    command_pipe_ = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    std::filesystem::create_directory(stand_in_directory());
    for (const std::string name : kStandIns) {
        const std::string script = stand_in_directory() + "/" + name;
        std::ofstream(script) << "#!/bin/sh\necho \"" << name << " $*\" >" << pipe << "\n";
        chmod(script.c_str(), 0755);
    }
}

void QoServiceEvents::listen() {
    for (;;) {
        pollfd sources[] = {
            {-1, POLLIN, 0}, {notify_socket_, POLLIN, 0}, {command_pipe_, POLLIN, 0}, {wake_event_, POLLIN, 0}};
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (ending_) return;
            if (!log_paused_) sources[0].fd = log_socket_;
            if (notifications_paused_) sources[1].fd = -1;
        }
        if (poll(sources, std::size(sources), -1) < 0) continue;
        eventfd_t wakes = 0;
        eventfd_read(wake_event_, &wakes);
        collect();
        changed_.notify_all();
    }
}

void QoServiceEvents::wake_listener() { eventfd_write(wake_event_, 1); }

void QoServiceEvents::pause_log() {
    const std::lock_guard<std::mutex> lock(mutex_);
    log_paused_ = true;
}

void QoServiceEvents::resume_log() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        log_paused_ = false;
    }
    wake_listener();
}

void QoServiceEvents::pause_notifications() {
    const std::lock_guard<std::mutex> lock(mutex_);
    notifications_paused_ = true;
}

void QoServiceEvents::resume_notifications() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        notifications_paused_ = false;
    }
    wake_listener();
}

void QoServiceEvents::close_log() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (log_socket_ == -1) return;
        unlink(kLogSocket);
        close(log_socket_);
        log_socket_ = -1;
    }
    wake_listener();
}

void QoServiceEvents::open_log() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        log_socket_ = bind_datagram_socket(kLogSocket);
        log_paused_ = false;
    }
    wake_listener();
}

std::unique_lock<std::mutex> QoServiceEvents::collect() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (log_socket_ != -1 && !log_paused_)
        drain(
            log_socket_, buffer_, [this](const std::string& line) { take_log_line(line); });
    drain(command_pipe_, buffer_, [this](const std::string& bytes) { take_commands(bytes); });
    if (!notifications_paused_)
        drain(notify_socket_, buffer_, [this](const std::string& text) { notifications_.push_back(text); });
    return lock;
}

// "<PRI>Mon DD HH:MM:SS ident: text"
void QoServiceEvents::take_log_line(const std::string& datagram) {
    const size_t priority_end = datagram.find('>');
    const size_t ident = priority_end + 1 + strlen("Jan 05 13:04:59 ");
    const size_t ident_end = datagram.find(": ", std::min(ident, datagram.size()));
    if (datagram.empty() || datagram[0] != '<' || ident_end == std::string::npos) return;
    const int priority = std::stoi(datagram.substr(1));
    const std::string origin = std::to_string(LOG_FAC(priority)) + " " + datagram.substr(ident, ident_end - ident);
    log_.push_back(qo_log_line(LOG_PRI(priority), datagram.substr(ident_end + 2)));
    if (std::find(idents_.begin(), idents_.end(), origin) == idents_.end()) idents_.push_back(origin);
}

void QoServiceEvents::take_commands(const std::string& bytes) {
    unfinished_command_ += bytes;
    for (size_t end = 0; (end = unfinished_command_.find('\n')) != std::string::npos;) {
        commands_.push_back(unfinished_command_.substr(0, end));
        unfinished_command_.erase(0, end + 1);
    }
}

std::vector<QoLogLine> QoServiceEvents::log() {
    const std::unique_lock<std::mutex> lock = collect();
    return log_;
}

void QoServiceEvents::clear_log() {
    const std::unique_lock<std::mutex> lock = collect();
    log_.clear();
}

std::vector<std::string> QoServiceEvents::idents() {
    const std::unique_lock<std::mutex> lock = collect();
    return idents_;
}

std::vector<std::string> QoServiceEvents::notifications() {
    const std::unique_lock<std::mutex> lock = collect();
    return notifications_;
}

std::vector<std::string> QoServiceEvents::commands() {
    const std::unique_lock<std::mutex> lock = collect();
    return commands_;
}

bool QoServiceEvents::wait_until(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, condition);
}

std::string QoServiceEvents::tail_of_log() {
    std::vector<QoLogLine> lines = log();
    std::erase_if(lines, [](const QoLogLine& line) { return line.level == LOG_DEBUG; });
    std::ostringstream tail;
    tail << lines.size() << " lines above debug level, the last of them:";
    for (size_t index = lines.size() - std::min<size_t>(lines.size(), 25); index < lines.size(); ++index)
        tail << "\n  <" << lines[index].level << "> " << lines[index].text.substr(0, 300);
    return tail.str();
}

testing::AssertionResult QoServiceEvents::wait_for_line(const std::function<bool(const QoLogLine&)>& awaited,
                                                        const std::string& description,
                                                        std::chrono::milliseconds timeout) {
    const auto has_come = [&] { return std::any_of(log_.begin(), log_.end(), awaited); };
    if (wait_until(has_come, timeout)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << description << " was not logged; " << tail_of_log();
}

testing::AssertionResult QoServiceEvents::wait_for_log(int level, const std::string& text,
                                                       std::chrono::milliseconds timeout) {
    const QoLogLine awaited{level, text};
    return wait_for_line([&](const QoLogLine& line) { return line == awaited; }, testing::PrintToString(awaited),
                         timeout);
}

testing::AssertionResult QoServiceEvents::wait_for_store_log(int level, const std::string& text,
                                                             std::chrono::milliseconds timeout) {
    const auto awaited = [&](const QoLogLine& line) {
        return line.level == level && line.text.starts_with("PushPull") && line.text.ends_with("*@#: " + text);
    };
    return wait_for_line(awaited, "<" + std::to_string(level) + "> \"PushPull...: " + text + "\"", timeout);
}

testing::AssertionResult QoServiceEvents::wait_for_notifications(size_t count, std::chrono::milliseconds timeout) {
    if (wait_until([&] { return notifications_.size() >= count; }, timeout)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "not ready " << count << " times; " << tail_of_log();
}

testing::AssertionResult QoServiceEvents::wait_for_command(const std::string& command,
                                                           std::chrono::milliseconds timeout) {
    const auto has_come = [&] { return std::find(commands_.begin(), commands_.end(), command) != commands_.end(); };
    if (wait_until(has_come, timeout)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << command << "\" was not run; " << tail_of_log();
}

testing::AssertionResult QoServiceEvents::wait_for_commands(size_t count, std::chrono::milliseconds timeout) {
    if (wait_until([&] { return commands_.size() >= count; }, timeout)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "not " << count << " commands were run; " << tail_of_log();
}

void QoServiceEvents::stall_stand_in(const std::string& name) const {
    std::ofstream(stand_in_directory() + "/" + name, std::ios::app) << "exec sleep 1000\n";
}
