// Telling systemd without waiting for it.
#include "qo_pushpull_systemd.h"

#include <errno.h>
#include <poll.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "qo_pushpull_descriptor.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct Address {
    sockaddr_un socket;
    socklen_t size;
};

// "/path", or "@name" of a socket without a file.
int make_address(const char* name, Address& address) {
    address = {};
    address.socket.sun_family = AF_UNIX;
    const size_t length = strlen(name);
    if (length < 2 || (name[0] != '/' && name[0] != '@')) return EINVAL;
    if (length >= sizeof address.socket.sun_path) return ENAMETOOLONG;
    memcpy(address.socket.sun_path, name, length);
    if (name[0] == '@') address.socket.sun_path[0] = '\0';
    address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    return 0;
}

/// @return 0 or an errno
int send_within(int socket, const char* text, milliseconds patience) {
    const steady_clock::time_point end = steady_clock::now() + patience;
    for (;;) {
        if (send(socket, text, strlen(text), MSG_NOSIGNAL) >= 0) return 0;
        const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        if (errno != EAGAIN || left.count() <= 0) return errno;
        pollfd room{socket, POLLOUT, 0};
        poll(&room, 1, static_cast<int>(left.count()));  // a signal may end it early
    }
}

/// The number that a variable of the environment is; nothing when it is none.
std::optional<uint64_t> number_in(const char* variable) {
    const char* const text = getenv(variable);
    if (text == nullptr) return std::nullopt;
    const char* const end = text + strlen(text);
    uint64_t number = 0;
    const auto [behind, error] = std::from_chars(text, end, number);
    if (error != std::errc() || behind != end) return std::nullopt;
    return number;
}

}  // namespace

int qo_notify_systemd(const char* state, milliseconds patience) noexcept {
    const QoKeptErrno kept;
    const char* const name = getenv("NOTIFY_SOCKET");
    if (name == nullptr) return 0;
    Address address;
    if (const int error = make_address(name, address); error != 0) return -error;
    const QoDescriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!sender || connect(sender.get(), reinterpret_cast<const sockaddr*>(&address.socket), address.size) != 0)
        return -errno;
    const int error = send_within(sender.get(), state, patience);
    return error == 0 ? 1 : -error;
}

std::optional<uint64_t> qo_systemd_watchdog_period() noexcept {
    const std::optional<uint64_t> period = number_in("WATCHDOG_USEC");
    if (period.value_or(0) == 0) return std::nullopt;
    const bool for_all = getenv("WATCHDOG_PID") == nullptr;
    return for_all || number_in("WATCHDOG_PID") == static_cast<uint64_t>(getpid()) ? period : std::nullopt;
}
