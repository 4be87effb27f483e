/// The rows of a service under test, when a test wants one and not when an hour is over. For ISOLATED tests with
/// timer_create among their replacements (WRAP), each of one source.
#ifndef QO_TEST_STATISTICS_ROWS_H
#define QO_TEST_STATISTICS_ROWS_H

#include <signal.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "qo_pushpull_files.h"
#include "qo_pushpull_stats.h"
#include "statistics_file.h"

/// What the timer of the last statistics that were started hands to its thread.
inline std::optional<sigval> qo_started_statistics;

extern "C" {
int __real_timer_create(clockid_t clock, sigevent* notification, timer_t* created);
int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* created);

int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* created) {
    if (notification->sigev_notify_function == &QoPushPullStats::TimerCallBack)
        qo_started_statistics = notification->sigev_value;
    return __real_timer_create(clock, notification, created);
}
}

/// Belongs behind the service in a fixture.
class QoStatisticsRows {
public:
    QoStatisticsRows() {
        std::filesystem::remove_all(QO_STATS_LOG_DIRECTORY);
        std::filesystem::create_directories(QO_STATS_LOG_DIRECTORY);
    }
    ~QoStatisticsRows() { qo_started_statistics.reset(); }
    QoStatisticsRows(const QoStatisticsRows&) = delete;
    QoStatisticsRows& operator=(const QoStatisticsRows&) = delete;

    /// Whether a service collects any.
    bool are_collected() const { return qo_started_statistics.has_value(); }

    /// Has a row written of what was counted since the one before, and reads it.
    std::map<std::string, std::string> next() const {
        if (!are_collected()) return {};
        QoPushPullStats::TimerCallBack(*qo_started_statistics);
        return qo_last_statistics_row(file());
    }

    std::string file() const {
        std::ostringstream text;
        text << std::ifstream(std::filesystem::path(QO_STATS_LOG_DIRECTORY) / QO_STATS_LOG_FILE).rdbuf();
        return text.str();
    }
};

#endif
