/// What the service tells systemd, and hears of it, by the protocol of sd_notify(3) and sd_watchdog_enabled(3).
#ifndef QO_PUSHPULL_SYSTEMD_H
#define QO_PUSHPULL_SYSTEMD_H

#include <chrono>
#include <cstdint>
#include <optional>

/// Patience for what systemd has to hear, however busy it is: that the service has started, or how it ends.
inline constexpr std::chrono::seconds QO_SYSTEMD_PATIENCE{5};

/// Sends a text such as "READY=1" to the socket in NOTIFY_SOCKET. Calls only what a signal handler may.
/// @param patience how long room in the socket is waited for; 0: not at all
/// @return 1 when it was sent; 0 when nobody asked for it; -EAGAIN when there was no room; another negative errno
int qo_notify_systemd(const char* state, std::chrono::milliseconds patience) noexcept;

/// Within how many microseconds systemd wants to be told "WATCHDOG=1", again and again; nothing when it does not want
/// to be told by this process.
std::optional<uint64_t> qo_systemd_watchdog_period() noexcept;

#endif
