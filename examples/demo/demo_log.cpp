// Taking the service's log lines out of the demo's own /dev/log.
#include "demo_log.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

namespace {

constexpr char kLogSocket[] = "/dev/log";
constexpr size_t kLongestLine = 262144;  // bytes; the kernel takes no longer datagram by default

// "<14>Nov 21 05:46:36 PushPull: text" as "info: text".
std::string readable_line(const std::string& datagram) {
    static const char* const levels[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
    const long priority = datagram.empty() ? 0 : strtol(datagram.c_str() + 1, nullptr, 10);
    const size_t ident_end = datagram.find(": ");
    const std::string text = ident_end == std::string::npos ? datagram : datagram.substr(ident_end + 2);
    return std::string(levels[priority & 7]) + ": " + text;
}

}  // namespace

DemoLog::DemoLog(const std::string& copy) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, kLogSocket, sizeof address.sun_path - 1);
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0 || bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        chmod(kLogSocket, 0666) != 0 || pipe2(stop_pipe_, O_CLOEXEC) != 0)
        throw NotSeen(std::string("cannot read the log at /dev/log: ") + strerror(errno));
    reader_ = std::thread([this, copy] { read_until_stopped(copy); });
}

DemoLog::~DemoLog() {
    close(stop_pipe_[1]);
    reader_.join();
    close(stop_pipe_[0]);
    close(socket_);
}

void DemoLog::read_until_stopped(const std::string& copy) {
    std::ofstream file;
    if (!copy.empty()) file.open(copy, std::ios::app);
    std::string datagram;
    for (;;) {
        pollfd waiting[] = {{socket_, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
        if (poll(waiting, 2, -1) < 0 && errno != EINTR) return;
        if ((waiting[0].revents & POLLIN) == 0) {
            if (waiting[1].revents != 0) return;
            continue;
        }
        datagram.resize(kLongestLine);
        const ssize_t length = recv(socket_, datagram.data(), datagram.size(), 0);
        if (length <= 0) continue;
        datagram.resize(static_cast<size_t>(length));
        const std::string line = readable_line(datagram);
        file << line << std::endl;
        const std::lock_guard<std::mutex> guard(mutex_);
        lines_.push_back(line);
        arrived_.notify_all();
    }
}

std::string DemoLog::wait_for(const std::string& text, DemoClock::time_point deadline) {
    std::unique_lock<std::mutex> guard(mutex_);
    for (size_t next = 0;;) {
        for (; next < lines_.size(); ++next)
            if (lines_[next].find(text) != std::string::npos) return lines_[next];
        if (arrived_.wait_until(guard, deadline) == std::cv_status::timeout && next == lines_.size()) return "";
    }
}

std::vector<std::string> DemoLog::lines() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return lines_;
}
