/// A reader of log lines that takes them when it is asked to, and nothing meanwhile. Header only.
#ifndef QO_LOG_READER_H
#define QO_LOG_READER_H

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "scratch_directory.h"

/// A place for its socket.
class QoLogReaderPath {
public:
    QoLogReaderPath() : path_(folder_.path() + "log") {}
    const char* c_str() const { return path_.c_str(); }

private:
    const QoScratchDirectory folder_;
    const std::string path_;
};

class QoLogReader {
public:
    /// @param type SOCK_DGRAM, or SOCK_STREAM, where a NUL ends each line
    explicit QoLogReader(const char* path, int type = SOCK_DGRAM)
        : path_(path), type_(type), socket_(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path, sizeof address.sun_path - 1);
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            (type == SOCK_STREAM && listen(socket_, 5) != 0))
            throw std::runtime_error(path_ + ": " + strerror(errno));
    }
    ~QoLogReader() {
        for (const Connection& connection : connections_) close(connection.descriptor);
        close(socket_);
        unlink(path_.c_str());
    }
    QoLogReader(const QoLogReader&) = delete;
    QoLogReader& operator=(const QoLogReader&) = delete;

    /// All lines that have come since the last time.
    std::vector<std::string> take() {
        std::vector<std::string> lines;
        if (type_ == SOCK_DGRAM) {
            while (receive(socket_) >= 0) lines.push_back(buffer_);
            return lines;
        }
        accept_all();
        // The newest first: what was written to the others before is then there.
        for (size_t number = connections_.size(); number-- > 0;) read_all(connections_[number]);
        for (Connection& connection : connections_) cut(connection, lines);
        std::erase_if(connections_, [](const Connection& connection) { return connection.descriptor == -1; });
        return lines;
    }

    /// The next lines, that many at least; fewer when none comes for long.
    std::vector<std::string> wait_for(size_t count) {
        std::vector<std::string> lines;
        while (lines.size() < count) {
            pollfd source{connections_.empty() ? socket_ : connections_.back().descriptor, POLLIN, 0};
            if (poll(&source, 1, kPatienceMs) != 1) break;
            for (std::string& line : take()) lines.push_back(std::move(line));
        }
        return lines;
    }

private:
    static constexpr int kPatienceMs = 30000;

    struct Connection {
        int descriptor;
        std::string unfinished;
    };

    // Into buffer_. @return as recv() does
    ssize_t receive(int descriptor) {
        buffer_.resize(300000);
        const ssize_t length = recv(descriptor, buffer_.data(), buffer_.size(), 0);
        buffer_.resize(static_cast<size_t>(length > 0 ? length : 0));
        return length;
    }
    void accept_all() {
        for (;;) {
            const int accepted = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (accepted == -1) return;
            connections_.push_back({accepted, ""});
        }
    }
    void read_all(Connection& connection) {
        for (;;) {
            const ssize_t length = receive(connection.descriptor);
            if (length < 0) return;
            if (length == 0) {
                close(connection.descriptor);
                connection.descriptor = -1;
                return;
            }
            connection.unfinished += buffer_;
        }
    }
    static void cut(Connection& connection, std::vector<std::string>& lines) {
        for (size_t end = 0; (end = connection.unfinished.find('\0')) != std::string::npos;) {
            lines.push_back(connection.unfinished.substr(0, end));
            connection.unfinished.erase(0, end + 1);
        }
    }

    const std::string path_;
    const int type_;
    const int socket_;
    std::vector<Connection> connections_;  // in the order in which they were made
    std::string buffer_;
};

#endif
