// Asking for a file, and knowing it to be new.
#include "qo_ctl_written_file.h"

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

using Request = int32_t (QoPushpullApi::*)(eQO_CMP_IDs_);

QoCtlWritten let_write(QoCtlSession& session, const char* name, Request request) {
    QoCtlWritten written;
    written.file = std::string(QO_DATA_DIRECTORY) + name;
    const Instant asked = file_clock();
    written.status = session.send([&](QoPushpullApi& api, eQO_CMP_IDs_ id) { return (api.*request)(id); }, "");
    if (written.status == QoCtlStatus::answered) written.status = session.fence();
    struct stat file {};
    if (written.status == QoCtlStatus::answered && stat(written.file.c_str(), &file) == 0) {
        written.seen = instant(file.st_mtim) >= asked;
        written.bytes = written.seen ? static_cast<int64_t>(file.st_size) : 0;
    }
    return written;
}

}  // namespace

QoCtlWritten qo_ctl_request_dump(QoCtlSession& session) {
    return let_write(session, QO_ACTIVE_TREE_FILE, &QoPushpullApi::save_complete_tree);
}

QoCtlWritten qo_ctl_request_save(QoCtlSession& session) {
    return let_write(session, QO_SAVED_TREE_FILE, &QoPushpullApi::flush);
}
