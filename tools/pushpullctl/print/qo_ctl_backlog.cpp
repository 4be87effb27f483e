// The thread that writes what its producer does not wait for.
#include "qo_ctl_backlog.h"

#include <limits.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace {

constexpr short kGone = POLLERR | POLLHUP | POLLNVAL;

}  // namespace

QoCtlBacklog::QoCtlBacklog(int descriptor, size_t limit, std::function<void()> on_broken)
    : descriptor_(descriptor), limit_(limit), on_broken_(std::move(on_broken)), thread_([this] { run(); }) {}

QoCtlBacklog::~QoCtlBacklog() { finish(std::chrono::milliseconds(0)); }

void QoCtlBacklog::push(std::string line) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (waiting_ + line.size() > limit_) {
            ++dropped_;
            return;
        }
        waiting_ += line.size();
        lines_.push_back(std::move(line));
    }
    news_.set();
}

void QoCtlBacklog::finish(std::chrono::milliseconds patience) {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        finishing_ = true;
    }
    news_.set();
    pollfd done{done_.descriptor(), POLLIN, 0};
    poll(&done, 1, static_cast<int>(std::min<int64_t>(patience.count(), INT_MAX)));
    quit_.set();
    thread_.join();
    const std::lock_guard<std::mutex> guard(mutex_);
    dropped_ += lines_.size();
}

void QoCtlBacklog::run() {
    std::string line;
    while (take(line) && write_line(line)) {
    }
    done_.set();
}

/// Waits for the next line. @return false when there is no more to write, or it cannot be
bool QoCtlBacklog::take(std::string& line) {
    while (true) {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            news_.clear();
            if (!lines_.empty()) {
                line = std::move(lines_.front());
                lines_.pop_front();
                waiting_ -= line.size();
                return true;
            }
            if (finishing_) return false;
        }
        if (!wait_for_line()) return false;
    }
}

bool QoCtlBacklog::wait_for_line() {
    std::array<pollfd, 3> ends{{{descriptor_, 0, 0}, {news_.descriptor(), POLLIN, 0}, {quit_.descriptor(), POLLIN, 0}}};
    poll(ends.data(), ends.size(), -1);
    if (ends[2].revents != 0) return false;
    if ((ends[0].revents & kGone) == 0) return true;
    break_off(EPIPE);
    return false;
}

bool QoCtlBacklog::write_line(const std::string& line) {
    size_t written = 0;
    while (written < line.size()) {
        std::array<pollfd, 2> ends{{{descriptor_, POLLOUT, 0}, {quit_.descriptor(), POLLIN, 0}}};
        poll(ends.data(), ends.size(), -1);
        if (ends[1].revents != 0) return false;
        // A pipe that can be written to takes this much without waiting.
        const size_t piece = std::min<size_t>(line.size() - written, PIPE_BUF);
        const ssize_t length = write(descriptor_, line.data() + written, piece);
        if (length >= 0) {
            written += static_cast<size_t>(length);
        } else if (errno != EINTR && errno != EAGAIN) {
            break_off(errno);
            return false;
        }
    }
    return true;
}

void QoCtlBacklog::break_off(int error) {
    error_ = error;
    broken_ = true;
    on_broken_();
}
