/// A message queue that a contender of bench/compare is given, removed with this object. Header only.
#ifndef QO_BENCH_MESSAGE_QUEUE_H
#define QO_BENCH_MESSAGE_QUEUE_H

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <string.h>
#include <time.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "child_process.h"

class QoMessageQueue {
public:
    /// @param messages that it holds @param size of the largest, in bytes
    QoMessageQueue(const std::string& name, int messages, size_t size) : name_(name), buffer_(size) {
        mq_attr attributes{};
        attributes.mq_maxmsg = messages;
        attributes.mq_msgsize = static_cast<long>(size);
        mq_unlink(name.c_str());
        descriptor_ = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0660, &attributes);
        if (descriptor_ == -1) fail("cannot make ");
    }
    ~QoMessageQueue() {
        mq_close(descriptor_);
        mq_unlink(name_.c_str());
    }
    QoMessageQueue(const QoMessageQueue&) = delete;
    QoMessageQueue& operator=(const QoMessageQueue&) = delete;

    const std::string& name() const { return name_; }

    /// Sends the text with its NUL.
    void send(const std::string& text) const {
        const timespec until = deadline();
        if (mq_timedsend(descriptor_, text.c_str(), text.size() + 1, 1, &until) != 0) fail("cannot send to ");
    }
    /// The next text, without its NUL; valid until the next one.
    std::string_view receive() {
        const timespec until = deadline();
        const ssize_t length = mq_timedreceive(descriptor_, buffer_.data(), buffer_.size(), nullptr, &until);
        if (length < 1) fail("nothing in ");
        return {buffer_.data(), static_cast<size_t>(length) - 1};
    }

private:
    [[noreturn]] void fail(const char* what) const { throw std::runtime_error(what + name_ + ": " + strerror(errno)); }
    static timespec deadline() {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        time.tv_sec += kQoPatience_s;
        return time;
    }

    std::string name_;
    std::vector<char> buffer_;
    mqd_t descriptor_;
};

#endif
