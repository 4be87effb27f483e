/// systemd's end of the notifications, for tests in one process. Header only.
#ifndef QO_TEST_NOTIFY_SOCKET_H
#define QO_TEST_NOTIFY_SOCKET_H

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "scratch_directory.h"

/// For its life NOTIFY_SOCKET names a socket of its own.
class QoNotifySocket {
public:
    QoNotifySocket() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error(path_ + ": " + strerror(errno));
        setenv("NOTIFY_SOCKET", path_.c_str(), 1);
    }
    ~QoNotifySocket() {
        unsetenv("NOTIFY_SOCKET");
        close(socket_);
    }
    QoNotifySocket(const QoNotifySocket&) = delete;
    QoNotifySocket& operator=(const QoNotifySocket&) = delete;

    const std::string& path() const { return path_; }
    /// What systemd was told since the last clear().
    const std::vector<std::string>& told() {
        char text[256];
        for (ssize_t length = 0; (length = recv(socket_, text, sizeof text, 0)) >= 0;)
            told_.emplace_back(text, static_cast<size_t>(length));
        return told_;
    }
    void clear() {
        told();
        told_.clear();
    }

private:
    const QoScratchDirectory folder_;
    const std::string path_ = folder_.file("notify");
    const int socket_;
    std::vector<std::string> told_;
};

#endif
