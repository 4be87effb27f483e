/// A file descriptor with an owner. Header only; any thread.
#ifndef QO_PUSHPULL_DESCRIPTOR_H
#define QO_PUSHPULL_DESCRIPTOR_H

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

/// Keeps errno over the calls that clean up.
class QoKeptErrno {
public:
    QoKeptErrno() : value_(errno) {}
    ~QoKeptErrno() { errno = value_; }
    QoKeptErrno(const QoKeptErrno&) = delete;
    QoKeptErrno& operator=(const QoKeptErrno&) = delete;

private:
    int value_;
};

/// Closes it in the end; errno stays as it was. -1 is none. That of a message queue is one as well.
class QoDescriptor {
public:
    explicit QoDescriptor(int value = -1) : value_(value) {}
    ~QoDescriptor() {
        if (value_ >= 0) {
            const QoKeptErrno kept;
            close(value_);
        }
    }
    QoDescriptor(QoDescriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    QoDescriptor& operator=(QoDescriptor&& other) noexcept {
        QoDescriptor former(std::exchange(value_, std::exchange(other.value_, -1)));
        return *this;
    }
    QoDescriptor(const QoDescriptor&) = delete;
    QoDescriptor& operator=(const QoDescriptor&) = delete;

    int get() const { return value_; }
    /// Hands it to the caller, who closes it.
    int release() { return std::exchange(value_, -1); }
    explicit operator bool() const { return value_ >= 0; }

private:
    int value_;
};

/// Whether the file or queue behind the descriptor has lost its name: what is opened under it now is another one.
inline bool qo_is_unlinked(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_nlink == 0;
}

#endif
