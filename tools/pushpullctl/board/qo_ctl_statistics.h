/// The statistics that the service writes (-l): rows of comma-separated values, in a file and in the gzip archives of
/// earlier days. Any thread.
#ifndef QO_CTL_STATISTICS_H
#define QO_CTL_STATISTICS_H

#include <ctime>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What went through one queue in the interval of a row.
struct QoCtlQueueSample {
    std::string name;
    int64_t messages;
    int64_t saves;      // publishes of its component that arranged a save
    int64_t max_depth;  // messages
    double avg_depth;   // messages, over the samples of the interval
    bool certain;       // false when the header no longer tells for sure whose columns these are
};

/// One row: what the service did in the interval that ended at `time`.
struct QoCtlStatisticsRow {
    time_t time = 0;           // UTC
    double interval_s = 0;     // seconds since the row before; 0 when that is unknown
    bool after_start = false;  // the service was started anew between the row before and this one
    double percent_active = 0;
    int64_t total_publishes = 0;
    int64_t publishes = 0;
    double publish_ms = 0;  // per publish
    int64_t total_reads = 0;
    int64_t reads = 0;
    double read_ms_as_written = 0;  // all the time spent in reads since the start, per read of this interval
    std::optional<double> read_ms;  // per read of this interval; nothing when it cannot be told
    int64_t total_saves = 0;
    int64_t saves = 0;
    int64_t total_clears = 0;
    int64_t clears = 0;
    int64_t subscriptions = 0;
    int64_t registers = 0;
    int64_t unregisters = 0;
    std::vector<QoCtlQueueSample> queues;
};

struct QoCtlStatistics {
    std::vector<QoCtlStatisticsRow> rows;  // in the order of their times
    std::vector<std::string> faults;       // what was skipped, as "file:line: why"
};

/// Reads one file's text. Columns are found by their names in the header above; names may be quoted
/// (RFC 4180). Queues come and go while a file keeps
/// its header. Those behind the last one that it names are called "(queue 3)" by their place in the row; so are all but
/// the service's own when there are fewer than it names. Once one may have left from between the others, the names
/// that follow are not certain any more.
/// @param file its name, for faults
/// @param written a time at which the last row was there: rows carry no year
void qo_ctl_read_statistics(std::string_view text, const std::string& file, time_t written,
                            QoCtlStatistics& statistics);

/// Reads one file, plain or gzip. @return false, with a fault added, when it cannot be opened
bool qo_ctl_read_statistics_file(const std::string& file, QoCtlStatistics& statistics);

/// To be called when all files are read: orders the rows and works out what follows from their neighbours.
void qo_ctl_complete_statistics(QoCtlStatistics& statistics);

/// Which rows and queues are looked at.
struct QoCtlStatisticsFilter {
    std::optional<time_t> since;  // both included
    std::optional<time_t> until;
    std::string queue;  // "" for all
};

/// Leaves out the others.
void qo_ctl_filter(std::vector<QoCtlStatisticsRow>& rows, const QoCtlStatisticsFilter& filter);

/// "2026-01-05", "2026-01-05 13:04" or "2026-01-05 13:04:59", UTC. @return nothing for anything else
std::optional<time_t> qo_ctl_read_time(const std::string& text);

/// The log of the service and its archives in a directory, oldest first.
std::vector<std::string> qo_ctl_statistics_files(const std::string& directory);

/// "2026-01-05 13:04:59"
std::string qo_ctl_time_text(time_t time);

/// A name with nothing in it that a terminal or a picture could take for more than a name.
std::string qo_ctl_plain_name(std::string name);

/// The same with a question mark when it is not certain.
std::string qo_ctl_shown_name(const std::string& name, bool certain);

/// What went through a queue in all rows.
struct QoCtlQueueTotal {
    int64_t messages = 0;
    int64_t saves = 0;
    int64_t max_depth = 0;
    double avg_depth = 0;  // weighted with the messages
    bool certain = true;   // in every row
};
std::map<std::string, QoCtlQueueTotal> qo_ctl_queue_totals(const std::vector<QoCtlStatisticsRow>& rows);

/// The usual time between two rows, in seconds; 0 for less than two rows.
double qo_ctl_usual_interval(const std::vector<QoCtlStatisticsRow>& rows);
/// True when rows are missing before this one, or the service was started anew.
bool qo_ctl_follows_a_gap(const QoCtlStatisticsRow& row, double usual_interval_s);

#endif
