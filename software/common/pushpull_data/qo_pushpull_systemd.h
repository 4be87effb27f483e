/// What the service tells systemd.
#ifndef QO_PUSHPULL_SYSTEMD_H
#define QO_PUSHPULL_SYSTEMD_H

#include <chrono>

/// Patience for what systemd has to hear, however busy it is: that the service has started, or how it ends.
inline constexpr std::chrono::seconds QO_SYSTEMD_PATIENCE{5};

/// sd_notify(), which waits for ever when systemd no longer reads: only once its socket has room. In between somebody
/// else may still take the last place; that is rare, and of no consequence while systemd lives.
/// @param patience how long the room is waited for; 0: not at all
/// @return as sd_notify() does; -EAGAIN when there was no room
int qo_notify_systemd(const char* state, std::chrono::milliseconds patience) noexcept;

#endif
