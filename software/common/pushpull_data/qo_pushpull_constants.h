/// Paths, queue attributes, time limits and error codes of the service, each with its unit. Texts of log
/// messages are not here: each stands at its syslog call, where it can be searched for.
#ifndef QO_PUSHPULL_CONSTANTS_H
#define QO_PUSHPULL_CONSTANTS_H

#include <mqueue.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <cstddef>
#include <cstdint>

static_assert(sizeof(time_t) >= 8, "a 32-bit time ends in January 2038; see cmake/QoCompileOptions.cmake");
static_assert(sizeof(off_t) >= 8,
              "with 32 bits a file beyond 2 GiB cannot be opened; see cmake/QoCompileOptions.cmake");

// ---- message queues ----
inline constexpr char QO_SERVICE_QUEUE_NAME[] = "/pushpull";  // the instance suffix follows
inline constexpr long QO_QUEUE_MAXMSG = 64;                   // messages
inline constexpr long QO_QUEUE_MSGSIZE = 262144;              // bytes, terminating NUL included
inline constexpr mode_t QO_QUEUE_MODE = 0660;                 // as given: umask is 0 around the open
inline constexpr unsigned QO_MESSAGE_PRIORITY = 1;            // of every request and notification
inline constexpr rlim_t QO_MQUEUE_LIMIT_BYTES = 851968000;    // soft and hard RLIMIT_MSGQUEUE
inline constexpr int QO_REOPEN_ATTEMPTS = 5;                  // of the client, to open the service's queue
inline constexpr int QO_SEND_ATTEMPTS = 5;                    // of the client, to send one request
inline constexpr time_t QO_SEND_DEADLINE_S = 1;               // seconds a send waits on a full queue
inline constexpr unsigned QO_RECEIVE_PAUSE_S = 1;             // seconds after a failed receive
// Seconds that the walk over one request's list of pointers may take. Components give up posting after about ten
// seconds on a full service queue, so no request may hold the service longer than half of that.
inline constexpr double QO_WALK_LIMIT_S = 5;

// ---- files ----
inline constexpr char QO_DATA_DIRECTORY[] = "/kivo/data/";
inline constexpr char QO_SAVED_TREE_FILE[] = "saved_tree.json";
inline constexpr char QO_BACKUP_EXTENSION[] = ".bak";
inline constexpr char QO_ACTIVE_TREE_FILE[] = "active_tree.json";
inline constexpr char QO_DEFAULTS_DIRECTORY[] = "/kivo/others/";
inline constexpr char QO_DEFAULTS_FILE[] = "defaults.json";
inline constexpr char QO_STATS_INTERVAL_FILE[] = "pushpull_stats.cfg";  // in the data directory
inline constexpr char QO_STATS_LOG_DIRECTORY[] = "/kivo/data/logs/ppstat";
inline constexpr char QO_STATS_LOG_FILE[] = "ppstats.csv";
inline constexpr char QO_COMMAND_OUTPUT_FILE[] = "/kivo/data/logs/pushpullCmdResult.txt";
inline constexpr char QO_RESTART_SCRIPT_FILE[] = "/var/volatile/tmp/restartPushPull.sh";

// ---- shell commands ----
inline constexpr char QO_REBOOT_COMMAND[] = "reboot now";
inline constexpr unsigned QO_REBOOT_DELAY_S = 5;  // seconds between SIGUSR1 and the reboot
inline constexpr char QO_RESTART_GATEWAY_COMMAND[] = "systemctl restart remote_gateway.service";

// ---- statistics ----
inline constexpr int32_t QO_STATS_INTERVAL_S = 3600;  // seconds between two rows without an interval file
inline constexpr time_t QO_ARCHIVE_LIFE_S = 604800;   // seconds that a log archive is kept: seven days
inline constexpr size_t QO_ARCHIVE_TIME_SIZE = 24;    // bytes of the time in an archive's name, NUL included

// ---- limits ----
inline constexpr int32_t QO_MAX_RESOURCES = 128;       // components in the registry
inline constexpr int QO_MAX_SUBSCRIBERS = 128;         // identifiers of one notification
inline constexpr int64_t QO_MAX_PLACEHOLDERS = 65536;  // array elements that one published id may add
// Bytes of memory, near enough, that publishes may let the data tree grow to. A save takes as much again for its copy.
inline constexpr int64_t QO_MAX_TREE_BYTES = int64_t{64} * 1024 * 1024;
inline constexpr int QO_MAX_SLASH_LINES = 16;        // log lines about empty segments of one pointer
inline constexpr int QO_MAX_LOGGED_REFUSALS = 1000;  // nodes that one publish may log as refused by write authority

// ---- results ----
inline constexpr int QO_ERR_QUEUE_OPEN = 50001;
inline constexpr int QO_ERR_QUEUE_RECEIVE = 50002;
inline constexpr int QO_ERR_QUEUE_SEND = 50003;
inline constexpr int QO_ERR_SUBSCRIBE = 50005;
inline constexpr int QO_ERR_UNSUBSCRIBE = 50006;
inline constexpr int QO_ERR_TREE_UPDATE = 50007;
inline constexpr int QO_ERR_TREE_SAVE = 50009;
inline constexpr int QO_ERR_TREE_DELETE = 50010;
inline constexpr int QO_ERR_REGISTRY_FULL = 50013;
inline constexpr int QO_ERR_NOT_REGISTERED = 50014;

#endif
