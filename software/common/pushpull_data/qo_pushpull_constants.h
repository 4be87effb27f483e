/// What several sources have to know of the service's queues, and the limits that several of them keep, each with its
/// unit. What one source alone needs stands there; texts of log messages stand at their syslog call, where they can be
/// searched for.
#ifndef QO_PUSHPULL_CONSTANTS_H
#define QO_PUSHPULL_CONSTANTS_H

#include <sys/types.h>
#include <time.h>

static_assert(sizeof(time_t) >= 8, "a 32-bit time ends in January 2038; see cmake/QoCompileOptions.cmake");

// ---- message queues ----
inline constexpr char QO_SERVICE_QUEUE_NAME[] = "/pushpull";  // the instance suffix follows
inline constexpr long QO_QUEUE_MAXMSG = 64;                   // messages
inline constexpr long QO_QUEUE_MSGSIZE = 262144;              // bytes, terminating NUL included
inline constexpr mode_t QO_QUEUE_MODE = 0660;                 // as given: umask is 0 around the open
inline constexpr unsigned QO_MESSAGE_PRIORITY = 1;            // of every request and notification
inline constexpr int QO_SEND_ATTEMPTS = 5;                    // of the client, to send one request

// ---- limits ----
inline constexpr int QO_MAX_SUBSCRIBERS = 128;  // identifiers of one notification
inline constexpr int QO_MAX_SLASH_LINES = 16;   // log lines about empty segments of one pointer

#endif
