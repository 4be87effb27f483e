/// Where a program that systemd would start says that it is ready. Header only.
#ifndef QO_BENCH_READINESS_SOCKET_H
#define QO_BENCH_READINESS_SOCKET_H

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "child_process.h"

class QoReadinessSocket {
public:
    explicit QoReadinessSocket(const std::string& path)
        : path_(path), descriptor_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        unlink(path.c_str());
        if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot make " + path);
    }
    ~QoReadinessSocket() {
        close(descriptor_);
        unlink(path_.c_str());
    }
    QoReadinessSocket(const QoReadinessSocket&) = delete;
    QoReadinessSocket& operator=(const QoReadinessSocket&) = delete;

    /// For the program's environment.
    std::string variable() const { return "NOTIFY_SOCKET=" + path_; }

    void wait_until_ready() const {
        pollfd waiting{descriptor_, POLLIN, 0};
        char text[256] = {};
        if (poll(&waiting, 1, kQoPatience_s * 1000) != 1 || recv(descriptor_, text, sizeof text - 1, 0) < 0 ||
            strstr(text, "READY=1") == nullptr)
            throw std::runtime_error("the service does not get ready");
    }

private:
    std::string path_;
    int descriptor_;
};

#endif
