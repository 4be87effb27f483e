/// A message queue that a test makes, looks into and removes. For ISOLATED tests. Header only.
#ifndef QO_TEST_SCRATCH_QUEUE_H
#define QO_TEST_SCRATCH_QUEUE_H

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <string.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

class QoScratchQueue {
public:
    struct Message {
        std::string bytes;
        unsigned priority;
        bool operator==(const Message&) const = default;
    };

    /// Creates the queue; it must not exist. Descriptors of others on it block, this object never does.
    QoScratchQueue(const std::string& name, long maxmsg, long msgsize) : name_(name) {
        mq_attr attributes{};
        attributes.mq_maxmsg = maxmsg;
        attributes.mq_msgsize = msgsize;
        open(O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, &attributes);
    }
    /// Looks into a queue that somebody else made; removes it all the same.
    explicit QoScratchQueue(const std::string& name) : name_(name) { open(O_RDWR | O_NONBLOCK, nullptr); }
    ~QoScratchQueue() {
        mq_close(descriptor_);
        mq_unlink(name_.c_str());
    }
    QoScratchQueue(const QoScratchQueue&) = delete;
    QoScratchQueue& operator=(const QoScratchQueue&) = delete;

    mqd_t descriptor() const { return descriptor_; }

    mq_attr attributes() const {
        mq_attr attributes{};
        mq_getattr(descriptor_, &attributes);
        return attributes;
    }
    long count() const { return attributes().mq_curmsgs; }

    bool put(const std::string& bytes, unsigned priority = 1) const {
        return mq_send(descriptor_, bytes.data(), bytes.size(), priority) == 0;
    }
    /// Puts messages of one byte until there is no room.
    void fill() const {
        while (put("f")) {
        }
    }
    /// Nothing when the queue is empty.
    std::optional<Message> take() const {
        std::vector<char> buffer(static_cast<size_t>(attributes().mq_msgsize));
        unsigned priority = 0;
        const ssize_t length = mq_receive(descriptor_, buffer.data(), buffer.size(), &priority);
        if (length < 0) return std::nullopt;
        return Message{std::string(buffer.data(), static_cast<size_t>(length)), priority};
    }

private:
    void open(int flags, mq_attr* attributes) {
        descriptor_ = mq_open(name_.c_str(), flags, 0600, attributes);
        if (descriptor_ == -1) throw std::runtime_error("queue " + name_ + ": " + strerror(errno));
    }

    std::string name_;
    mqd_t descriptor_ = -1;
};

#endif
