// stats: what the service wrote about its work.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_statistics.h"
#include "qo_ctl_statistics_print.h"
#include "qo_pushpull_files.h"

namespace {

constexpr uint64_t kMostRows = 1000000000;

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

class Stats : public QoCtlCommand {
public:
    Help help() const override {
        return {"stats", "Show the statistics that the service writes",
                "Needs no service; the service writes them when it is started with -l. Prints a table of the last\n"
                "rows and one of the totals of every queue, with --json the rows as JSON. A row that cannot be read\n"
                "is reported and skipped.\n\n"
                "Example:\n  pushpullctl stats\n  pushpullctl stats --plot week.svg /kivo/data/logs/ppstat/*"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.words("FILE", files_, "the log or its archives (default: all that the service wrote)",
                   QoCtlCommandLine::Need::optional);
        line.number("--rows", rows_, 0, kMostRows, "how many of the last rows to show (default 20)");
        line.text("--since", since_, "TIME", "only rows from then on: \"2026-01-05\", \"2026-01-05 13:04\" (UTC)");
        line.text("--until", until_, "TIME", "only rows up to then");
        line.text("--queue", filter_.queue, "NAME", "of the queues only this one");
        line.text("--plot", plot_, "FILE", "draw all rows as a picture, .svg; - prints it instead of the tables");
    }
    std::string fault() override {
        const std::string ending = std::filesystem::path(plot_).extension();
        const bool known = ending.empty() || ending == ".svg";
        if (!known) return plot_ + ": pictures are SVG, and their names end in .svg";
        if (std::string fault = take_time(since_, filter_.since); !fault.empty()) return fault;
        return take_time(until_, filter_.until);
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    static std::string take_time(const std::string& text, std::optional<time_t>& time) {
        if (text.empty()) return "";
        time = qo_ctl_read_time(text);
        return time ? "" : "\"" + text + "\" is no time, as 2026-01-05 or \"2026-01-05 13:04\"";
    }

    std::vector<std::string> files_;  // empty: those that the service writes
    uint64_t rows_ = 20;
    std::string plot_;
    std::string since_;
    std::string until_;
    QoCtlStatisticsFilter filter_;
};

QoCtlStatus Stats::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    signals.release();
    if (files_.empty()) files_ = qo_ctl_statistics_files(QO_STATS_LOG_DIRECTORY);
    if (files_.empty()) {
        say_why_there_are_none();
        return QoCtlStatus::failed;
    }
    QoCtlStatistics statistics;
    QoCtlStatus status = read_all(files_, statistics);
    qo_ctl_filter(statistics.rows, filter_);
    if (statistics.rows.empty()) {
        qo_ctl_say("there are no rows");
        return QoCtlStatus::failed;
    }
    if (plot_ == "-") return qo_ctl_print(qo_ctl_statistics_plot(statistics.rows), status);
    if (!plot_.empty() && !write_plot(plot_, qo_ctl_statistics_plot(statistics.rows))) status = QoCtlStatus::failed;
    if (common.json_lines) return qo_ctl_print(qo_ctl_statistics_json(statistics.rows, rows_), status);
    return qo_ctl_print(
        qo_ctl_statistics_table(statistics.rows, rows_) + "\n" + qo_ctl_queue_totals_table(statistics.rows), status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_stats() { return std::make_unique<Stats>(); }
