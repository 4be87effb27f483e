// stats: what the service wrote about its work.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "qo_ctl_commands.h"
#include "qo_ctl_statistics.h"
#include "qo_pushpull_files.h"

namespace {

/// All rows of the files. @return failed when a file could not be opened
QoCtlStatus read_all(const std::vector<std::string>& files, QoCtlStatistics& statistics) {
    QoCtlStatus status = QoCtlStatus::answered;
    for (const std::string& file : files)
        if (!qo_ctl_read_statistics_file(file, statistics)) status = QoCtlStatus::failed;
    qo_ctl_complete_statistics(statistics);
    for (const std::string& fault : statistics.faults) qo_ctl_say(fault);
    return status;
}

bool write_plot(const std::string& path, const std::string& picture) {
    std::ofstream file(path, std::ios::binary);
    file << picture << std::flush;
    if (!file) qo_ctl_say(path + ": " + std::strerror(errno));
    return static_cast<bool>(file);
}

/// The directory is made at the first row; one that may not be read looks the same as none.
void say_why_there_are_none() {
    std::error_code error;
    const std::filesystem::directory_iterator entries(QO_STATS_LOG_DIRECTORY, error);
    if (!error || error == std::errc::no_such_file_or_directory)
        qo_ctl_say(std::string("no statistics in ") + QO_STATS_LOG_DIRECTORY + "; is the service started with -l?");
    else
        qo_ctl_say(std::string(QO_STATS_LOG_DIRECTORY) + ": " + error.message());
}

}  // namespace

QoCtlStatus qo_ctl_stats(const QoCtlOptions& options, QoCtlSignals& signals) {
    signals.release();
    std::vector<std::string> files = options.files;
    if (files.empty()) files = qo_ctl_statistics_files(QO_STATS_LOG_DIRECTORY);
    if (files.empty()) {
        say_why_there_are_none();
        return QoCtlStatus::failed;
    }
    QoCtlStatistics statistics;
    QoCtlStatus status = read_all(files, statistics);
    if (statistics.rows.empty()) {
        qo_ctl_say("there are no rows");
        return QoCtlStatus::failed;
    }
    if (!options.plot.empty() && !write_plot(options.plot, qo_ctl_statistics_plot(statistics.rows)))
        status = QoCtlStatus::failed;
    if (options.json_lines) return qo_ctl_print(qo_ctl_statistics_json(statistics.rows, options.rows), status);
    return qo_ctl_print(
        qo_ctl_statistics_table(statistics.rows, options.rows) + "\n" + qo_ctl_queue_totals_table(statistics.rows),
        status);
}
