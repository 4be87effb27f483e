// Reading the rows of the statistics, and adding them up.
#include "qo_ctl_statistics.h"

#include <glob.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <memory>

#include "qo_pushpull_conventions.h"
#include "qo_pushpull_files.h"

namespace {

constexpr size_t kFixedColumns = std::size(QO_STATS_COLUMNS);
constexpr size_t kColumnsOfQueue = std::size(QO_STATS_QUEUE_COLUMNS);
constexpr time_t kDay = 86400;
constexpr size_t kLongestText = size_t{1} << 30;  // bytes of one file
constexpr size_t kLongestQuoted = 1024;           // bytes of a field: a name, each character doubled, and more
constexpr size_t kMostFaults = 20;                // reported one by one
constexpr double kGapFactor = 2.5;                // of the usual interval

using Fields = std::vector<std::string>;

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ') || text.ends_with('\r')) text.remove_suffix(1);
    return text;
}

/// Takes the quoted field off that a text begins with: its quotes removed, two in it for one. @return nothing, and the
/// text as it was, when it begins with none.
std::optional<std::string> take_quoted(std::string_view& text) {
    constexpr std::string_view kBehind = ", \r\n";
    if (!text.starts_with('"')) return std::nullopt;
    std::string field;
    for (size_t i = 1; i < std::min(text.size(), kLongestQuoted); ++i) {
        const bool ends = text[i] == '"' && !text.substr(i + 1).starts_with('"');
        if (ends && i + 1 < text.size() && kBehind.find(text[i + 1]) == std::string_view::npos) return std::nullopt;
        if (ends) {
            text.remove_prefix(i + 1);
            return field;
        }
        field += text[i];
        if (text[i] == '"') ++i;
    }
    return std::nullopt;
}

/// Takes the fields of one record off a text, without the blanks around them. A comma at the end ends the last field. A
/// record ends with its line, but not inside a quoted field; only a header has names, and so quotes.
Fields take_fields(std::string_view& text) {
    Fields fields;
    for (bool goes_on = true; goes_on;) {
        while (text.starts_with(' ')) text.remove_prefix(1);
        const bool header = !fields.empty() && fields[0] == QO_STATS_UTC_TIME;
        std::string field = header ? take_quoted(text).value_or("") : "";
        const size_t end = std::min(text.find_first_of(",\n"), text.size());
        fields.push_back(std::move(field.append(trimmed(text.substr(0, end)))));
        goes_on = end < text.size() && text[end] == ',';
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (fields.size() > 1 && fields.back().empty()) fields.pop_back();
    return fields;
}

template <typename Number>
bool to_number(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if constexpr (std::is_floating_point_v<Number>) {
        if (!std::isfinite(number)) return false;
    }
    return error == std::errc() && end == text.data() + text.size() && number >= 0;
}

/// The time of "Jan 05 13:04:59" in the last year in which that is not after `limit`.
std::optional<time_t> to_time(std::string_view text, time_t limit) {
    tm parsed{};
    const std::string copy(text);
    const char* end = strptime(copy.c_str(), "%b %d %H:%M:%S", &parsed);
    if (end == nullptr || *end != '\0') return std::nullopt;
    tm last{};
    gmtime_r(&limit, &last);
    constexpr int kYears = 9;  // there is a leap day in between
    for (int year = last.tm_year; year > last.tm_year - kYears; --year) {
        tm candidate = parsed;
        candidate.tm_year = year;
        const time_t time = timegm(&candidate);
        if (candidate.tm_mon == parsed.tm_mon && time <= limit) return time;
    }
    return std::nullopt;
}

// ---- one file ----

/// The columns of a file, as its header names them.
struct Header {
    std::map<std::string, size_t, std::less<>> columns;
    std::vector<std::string> queues;
};

/// "" and the header, or what is wrong with it.
std::string read_header(const Fields& fields, Header& header) {
    header = Header();
    for (size_t i = 0; i < std::min(fields.size(), kFixedColumns); ++i) header.columns.emplace(fields[i], i);
    for (const std::string_view name : QO_STATS_COLUMNS)
        if (header.columns.count(name) == 0) return "the header has no column \"" + std::string(name) + "\"";
    for (size_t i = kFixedColumns; i + kColumnsOfQueue <= fields.size(); i += kColumnsOfQueue) {
        std::string_view name = fields[i];
        // A name with commas that is not quoted: its columns, and those behind it, can be told by their places only.
        constexpr std::string_view kFirst = QO_STATS_QUEUE_COLUMNS[0];
        if (!name.ends_with(kFirst)) break;
        name.remove_suffix(kFirst.size());
        header.queues.emplace_back(name);
    }
    return "";
}

/// The name of the queue at `place` of a row with `count` queues. The service's own comes first, always; queues that
/// came since are behind those of the header. When some have gone, the others cannot be told.
std::string queue_name(const Header& header, size_t place, size_t count) {
    const bool told = place < header.queues.size() && (place == 0 || count >= header.queues.size());
    return told ? qo_ctl_plain_name(header.queues[place]) : "(queue " + std::to_string(place + 1) + ")";
}

/// Whether the queues of a file's rows still stand where its header has them. The service appends a queue that comes
/// and closes the gap of one that goes, and a file keeps its header.
class QueueOrder {
public:
    explicit QueueOrder(size_t named = 0) : count_(named) {}

    /// To be told of each row in turn. @param count how many queues it has
    bool is_certain_in(const QoCtlStatisticsRow& row, size_t count) {
        const auto registers = static_cast<size_t>(row.registers);
        // A registration makes the header of the file that begins with its row.
        const bool header_is_of_this_row = first_ && registers > 0 && count == count_;
        const bool some_left = row.unregisters > 0 || count < count_;
        // After an "init" request all register again, in whatever order, and nobody has unregistered.
        const bool all_anew = registers > 0 && registers + 1 >= count && count != count_ + registers;
        if (!header_is_of_this_row && (some_left || all_anew)) certain_ = false;
        first_ = false;
        count_ = count;
        return certain_;
    }

private:
    bool certain_ = true;
    bool first_ = true;
    size_t count_;  // of the row before, or of the header
};

bool read_queues(const Fields& fields, const Header& header, QueueOrder& order, QoCtlStatisticsRow& row) {
    const size_t count = (fields.size() - kFixedColumns) / kColumnsOfQueue;
    const bool certain = order.is_certain_in(row, count);
    for (size_t place = 0; place < count; ++place) {
        const std::string* field = &fields[kFixedColumns + place * kColumnsOfQueue];
        // The service's own queue never goes, and a place is certain anyway.
        const bool named = place > 0 && place < header.queues.size() && count >= header.queues.size();
        QoCtlQueueSample queue{queue_name(header, place, count), 0, 0, 0, 0, certain || !named};
        if (!to_number(field[0], queue.messages) || !to_number(field[1], queue.saves) ||
            !to_number(field[2], queue.max_depth) || !to_number(field[3], queue.avg_depth))
            return false;
        row.queues.push_back(std::move(queue));
    }
    return true;
}

/// "" and the row, or what is wrong with it.
std::string read_row(const Fields& fields, const Header& header, QueueOrder& order, time_t limit,
                     QoCtlStatisticsRow& row) {
    if (header.columns.empty()) return "there is no header above it";
    if (fields.size() < kFixedColumns || (fields.size() - kFixedColumns) % kColumnsOfQueue != 0)
        return "a row of " + std::to_string(fields.size()) + " columns";
    const auto field = [&](std::string_view name) -> std::string_view {
        return fields[header.columns.find(name)->second];
    };
    const std::optional<time_t> time = to_time(field(QO_STATS_UTC_TIME), limit);
    if (!time) return "it does not begin with a time";
    row.time = *time;
    const bool numbers =
        to_number(field(QO_STATS_PERCENT_ACTIVE), row.percent_active) &&
        to_number(field(QO_STATS_TOTAL_PUBLISHES), row.total_publishes) &&
        to_number(field(QO_STATS_PUBLISHES), row.publishes) &&
        to_number(field(QO_STATS_AVG_PUB_TIME), row.publish_ms) &&
        to_number(field(QO_STATS_TOTAL_READS), row.total_reads) && to_number(field(QO_STATS_READS), row.reads) &&
        to_number(field(QO_STATS_AVG_READ_TIME), row.read_ms_as_written) &&
        to_number(field(QO_STATS_TOTAL_SAVES), row.total_saves) && to_number(field(QO_STATS_SAVES), row.saves) &&
        to_number(field(QO_STATS_TOTAL_CLEARS), row.total_clears) && to_number(field(QO_STATS_CLEARS), row.clears) &&
        to_number(field(QO_STATS_SUBSCRIPTIONS), row.subscriptions) &&
        to_number(field(QO_STATS_REGISTERS), row.registers) &&
        to_number(field(QO_STATS_UNREGISTERS), row.unregisters) && read_queues(fields, header, order, row);
    return numbers ? "" : "a value is no number";
}

/// The whole content of a file, unpacked where it is packed. @return "" or what went wrong on the way
std::string unpack(const std::string& name, gzFile_s* file, std::string& text) {
    char piece[65536];
    for (;;) {
        const int length = gzread(file, piece, sizeof piece);
        if (length <= 0) break;
        text.append(piece, static_cast<size_t>(length));
        if (text.size() > kLongestText) return "longer than 1 GiB; the rest is left out";
    }
    int error = Z_OK;
    const char* message = gzerror(file, &error);
    if (error == Z_OK) return "";
    if (error == Z_ERRNO) return strerror(errno);
    std::string reason = message;
    if (reason.starts_with(name + ": ")) reason.erase(0, name.size() + 2);
    return "ends early or is damaged: " + reason;
}

/// When the last row of a file was there: an archive has the time in its name.
time_t written_at(const std::string& file, const struct stat& status) {
    constexpr size_t kDigits = QO_ARCHIVE_TIME_DIGITS;
    const std::string name = file.substr(file.rfind('/') + 1);
    int64_t time = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + std::min(name.size(), kDigits), time);
    const bool archive = name.size() > kDigits && name[kDigits] == '_' && end == name.data() + kDigits;
    return archive ? static_cast<time_t>(time) : status.st_mtime;
}

struct GzipClose {
    void operator()(gzFile_s* file) const { gzclose(file); }
};

}  // namespace

void qo_ctl_read_statistics(std::string_view text, const std::string& file, time_t written,
                            QoCtlStatistics& statistics) {
    Header header;
    QueueOrder order;
    size_t number = 0;  // of the line
    size_t next_number = 1;
    size_t faults = 0;
    const auto report = [&](const std::string& fault) {
        if (++faults <= kMostFaults) statistics.faults.push_back(file + ":" + std::to_string(number) + ": " + fault);
    };
    while (!text.empty()) {
        const std::string_view before = text;
        const Fields fields = take_fields(text);
        number = next_number;
        const std::string_view taken = before.substr(0, before.size() - text.size());
        next_number += static_cast<size_t>(std::count(taken.begin(), taken.end(), '\n'));
        if (fields.size() == 1 && fields[0].empty()) continue;
        if (fields[0] == QO_STATS_UTC_TIME) {
            const std::string fault = read_header(fields, header);
            if (!fault.empty()) header = Header();
            if (!fault.empty()) report(fault);
            order = QueueOrder(header.queues.size());
            continue;
        }
        QoCtlStatisticsRow row;
        const std::string fault = read_row(fields, header, order, written + kDay, row);
        if (fault.empty())
            statistics.rows.push_back(std::move(row));
        else
            report(fault + "; skipped");
    }
    if (faults > kMostFaults)
        statistics.faults.push_back(file + ": " + std::to_string(faults - kMostFaults) + " more lines skipped");
}

bool qo_ctl_read_statistics_file(const std::string& file, QoCtlStatistics& statistics) {
    const std::unique_ptr<gzFile_s, GzipClose> opened(gzopen(file.c_str(), "rb"));
    struct stat status {};
    if (!opened || stat(file.c_str(), &status) != 0) {
        statistics.faults.push_back(file + ": " + strerror(errno));
        return false;
    }
    std::string content;
    const std::string fault = unpack(file, opened.get(), content);
    if (!fault.empty()) statistics.faults.push_back(file + ": " + fault);
    qo_ctl_read_statistics(content, file, written_at(file, status), statistics);
    return true;
}

// ---- all files ----

namespace {

bool continues(const QoCtlStatisticsRow& row, const QoCtlStatisticsRow& former) {
    return row.total_reads - row.reads == former.total_reads &&
           row.total_publishes - row.publishes == former.total_publishes &&
           row.total_saves - row.saves == former.total_saves && row.total_clears - row.clears == former.total_clears;
}

bool begins_a_run(const QoCtlStatisticsRow& row) {
    return row.total_reads == row.reads && row.total_publishes == row.publishes && row.total_saves == row.saves &&
           row.total_clears == row.clears;
}

}  // namespace

void qo_ctl_complete_statistics(QoCtlStatistics& statistics) {
    std::vector<QoCtlStatisticsRow>& rows = statistics.rows;
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.time < b.time; });
    double spent_ms = 0;  // in reads, from the start of the run to the row before
    bool spent_known = false;
    const QoCtlStatisticsRow* former = nullptr;
    for (QoCtlStatisticsRow& row : rows) {
        const bool same_run = former != nullptr && continues(row, *former);
        const bool new_run = !same_run && begins_a_run(row);
        row.after_start = former != nullptr && new_run;
        row.interval_s = former != nullptr ? static_cast<double>(row.time - former->time) : 0;
        if (new_run) spent_ms = 0;
        spent_known = new_run || (same_run && spent_known);
        if (row.reads > 0) {
            const auto reads = static_cast<double>(row.reads);
            const double now_spent_ms = row.read_ms_as_written * reads;
            if (spent_known) row.read_ms = std::max(0.0, now_spent_ms - spent_ms) / reads;
            spent_ms = now_spent_ms;
            spent_known = true;
        }
        former = &row;
    }
}

std::vector<std::string> qo_ctl_statistics_files(const std::string& directory) {
    std::vector<std::string> files;
    glob_t found{};
    if (glob((directory + "/*" + qo_archive_ending(QO_STATS_LOG_FILE)).c_str(), 0, nullptr, &found) == 0)
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    const std::string log = directory + "/" + QO_STATS_LOG_FILE;
    struct stat status {};
    if (stat(log.c_str(), &status) == 0) files.push_back(log);
    return files;
}

void qo_ctl_filter(std::vector<QoCtlStatisticsRow>& rows, const QoCtlStatisticsFilter& filter) {
    std::erase_if(rows, [&filter](const QoCtlStatisticsRow& row) {
        return (filter.since && row.time < *filter.since) || (filter.until && row.time > *filter.until);
    });
    if (filter.queue.empty()) return;
    for (QoCtlStatisticsRow& row : rows)
        std::erase_if(row.queues, [&filter](const QoCtlQueueSample& queue) { return queue.name != filter.queue; });
}

std::optional<time_t> qo_ctl_read_time(const std::string& text) {
    for (const char* pattern : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S"}) {
        tm broken_down{};
        const char* const end = strptime(text.c_str(), pattern, &broken_down);
        if (end != nullptr && *end == '\0') return timegm(&broken_down);
    }
    return std::nullopt;
}

std::string qo_ctl_time_text(time_t time) {
    tm broken_down{};
    gmtime_r(&time, &broken_down);
    char text[32];
    return std::string(text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &broken_down));
}

std::string qo_ctl_plain_name(std::string name) {
    for (char& character : name)
        if (character < ' ' || character > '~') character = '?';
    return name;
}

std::string qo_ctl_shown_name(const std::string& name, bool certain) { return certain ? name : name + "?"; }

std::map<std::string, QoCtlQueueTotal> qo_ctl_queue_totals(const std::vector<QoCtlStatisticsRow>& rows) {
    std::map<std::string, QoCtlQueueTotal> totals;
    for (const QoCtlStatisticsRow& row : rows) {
        for (const QoCtlQueueSample& queue : row.queues) {
            QoCtlQueueTotal& total = totals[queue.name];
            // A sum of depths until all rows are in.
            total.avg_depth += queue.avg_depth * static_cast<double>(queue.messages);
            total.messages += queue.messages;
            total.saves += queue.saves;
            total.max_depth = std::max(total.max_depth, queue.max_depth);
            total.certain = total.certain && queue.certain;
        }
    }
    for (auto& [name, total] : totals)
        total.avg_depth = total.messages > 0 ? total.avg_depth / static_cast<double>(total.messages) : 0;
    return totals;
}

double qo_ctl_usual_interval(const std::vector<QoCtlStatisticsRow>& rows) {
    std::vector<double> intervals;
    for (const QoCtlStatisticsRow& row : rows)
        if (row.interval_s > 0) intervals.push_back(row.interval_s);
    if (intervals.empty()) return 0;
    const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
    std::nth_element(intervals.begin(), middle, intervals.end());
    return *middle;
}

bool qo_ctl_follows_a_gap(const QoCtlStatisticsRow& row, double usual_interval_s) {
    return row.after_start || row.interval_s > kGapFactor * usual_interval_s;
}
