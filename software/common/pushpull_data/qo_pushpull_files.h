/// Where the service's files are.
#ifndef QO_PUSHPULL_FILES_H
#define QO_PUSHPULL_FILES_H

#include <sys/types.h>

static_assert(sizeof(off_t) >= 8,
              "with 32 bits a file beyond 2 GiB cannot be opened; see cmake/QoCompileOptions.cmake");

inline constexpr char QO_DATA_DIRECTORY[] = "/kivo/data/";
inline constexpr char QO_SAVED_TREE_FILE[] = "saved_tree.json";    // in the data directory
inline constexpr char QO_BACKUP_EXTENSION[] = ".bak";              // of the saved tree
inline constexpr char QO_ACTIVE_TREE_FILE[] = "active_tree.json";  // in the data directory
inline constexpr char QO_DEFAULTS_DIRECTORY[] = "/kivo/others/";
inline constexpr char QO_DEFAULTS_FILE[] = "defaults.json";  // in the defaults directory
inline constexpr char QO_STATS_LOG_DIRECTORY[] = "/kivo/data/logs/ppstat";
inline constexpr char QO_STATS_LOG_FILE[] = "ppstats.csv";  // in the statistics directory

#endif
