// Asking for the debug dump, and knowing it to be new.
#include "qo_ctl_dump.h"

#include <sys/stat.h>

#include <ctime>
#include <tuple>

#include "qo_pushpull_files.h"

namespace {

using Instant = std::pair<int64_t, int64_t>;  // seconds, nanoseconds of the wall clock

Instant instant(const timespec& time) { return {time.tv_sec, time.tv_nsec}; }

/// The time as the kernel stamps files with it.
Instant file_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return instant(now);
}

}  // namespace

QoCtlDump qo_ctl_request_dump(QoCtlSession& session) {
    QoCtlDump dump;
    dump.file = std::string(QO_DATA_DIRECTORY) + QO_ACTIVE_TREE_FILE;
    const Instant asked = file_clock();
    dump.status = session.send([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.save_complete_tree(id); }, "");
    if (dump.status == QoCtlStatus::answered) dump.status = session.fence();
    struct stat file {};
    if (dump.status == QoCtlStatus::answered && stat(dump.file.c_str(), &file) == 0) {
        dump.seen = instant(file.st_mtim) >= asked;
        dump.bytes = dump.seen ? static_cast<int64_t>(file.st_size) : 0;
    }
    return dump;
}
