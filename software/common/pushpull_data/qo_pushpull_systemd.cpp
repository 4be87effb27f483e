// Telling systemd without waiting for it.
#include "qo_pushpull_systemd.h"

#include <errno.h>
#include <poll.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include "qo_pushpull_descriptor.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Whether a socket connected to systemd's can be written to in time. One that cannot be connected to holds nobody up.
bool has_room(const char* name, milliseconds patience) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(name);
    if ((name[0] != '/' && name[0] != '@') || length >= sizeof address.sun_path) return true;
    memcpy(address.sun_path, name, length);
    if (name[0] == '@') address.sun_path[0] = '\0';
    const QoDescriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    if (!probe || connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) return true;

    const steady_clock::time_point end = steady_clock::now() + patience;
    for (milliseconds left = patience;; left = std::chrono::ceil<milliseconds>(end - steady_clock::now())) {
        pollfd room{probe.get(), POLLOUT, 0};
        const int result = poll(&room, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
        if (result >= 0 || errno != EINTR) return result != 0;
    }
}

}  // namespace

int qo_notify_systemd(const char* state, milliseconds patience) noexcept {
    const QoKeptErrno kept;
    const char* name = getenv("NOTIFY_SOCKET");
    if (name != nullptr && !has_room(name, patience)) return -EAGAIN;
    return sd_notify(0, state);
}
