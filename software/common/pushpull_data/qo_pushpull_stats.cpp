// The statistics: counters, and the rows that they become.
#include "qo_pushpull_stats.h"

#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <algorithm>
#include <exception>
#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>
#include <utility>

#include "qo_pushpull_blocked_signal.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_exception_text.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_live_objects.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_thread_timer.h"
#include "qo_pushpull_utilities.h"
#include "qo_resource_mgr.h"

namespace {

constexpr int32_t kIntervalS = 3600;      // seconds between two rows without an interval file
constexpr double kMilliseconds = 1000.0;  // in a second
constexpr double kPercent = 100.0;

/// The names of the columns with which a row begins; no blank before those of the queues.
std::string fixed_header() {
    std::string header;
    for (const std::string_view column : QO_STATS_COLUMNS) {
        if (!header.empty()) header += ", ";
        header += column;
    }
    return header + ",";
}

double average(double total, int32_t count) { return count > 0 ? total / count : 0.0; }

int32_t sum(int32_t total, int32_t count) {
    qo_count(total, count);
    return total;
}

/// Fields of a row, each with the comma and the blank that follow it.
class RowText {
public:
    void add(const std::string& field) { text_ += field + ", "; }
    void add(int32_t value) { add(std::to_string(value)); }
    void add(double value) { add(std::to_string(value)); }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

}  // namespace

// ---- life ----

QoPushPullStats::QoPushPullStats(QoStatsSettings settings)
    : _logHeader(true),
      _numPublish(0),
      _numGets(0),
      _numSaves(0),
      _numSubscriptions(0),
      _numClears(0),
      _numRegisters(0),
      _numUnRegisters(0),
      _numPublishTotal(0),
      _numGetsTotal(0),
      _numSavesTotal(0),
      _numClearsTotal(0),
      _timer_id(nullptr),
      _interval_time(kIntervalS),
      _startTime(0),
      _activeTime(0),
      _publishTime(0),
      _readTime(0),
      settings_(std::move(settings)) {
    QoLiveObjects<QoPushPullStats>::add(this);
}

QoPushPullStats::~QoPushPullStats() {
    QoLiveObjects<QoPushPullStats>::remove(this);
    if (_timer_id != nullptr) timer_delete(_timer_id);
}

void QoPushPullStats::init_stats_collection(std::shared_ptr<ResourceMgr> registry) {
    {
        const std::lock_guard guard(registry_mutex_);
        resource_mgr.swap(registry);
    }
    if (!logger) {
        logger = std::make_shared<QoUtilLogFileManager>(ArchivePerDay, settings_.clock);
        logger->setLogName(settings_.log_directory, QO_STATS_LOG_FILE);
    }
    start_interval();
    read_interval();
    if (_timer_id == nullptr) start_timer();
}

void QoPushPullStats::read_interval() {
    if (!DoesFileExist(settings_.interval_file)) return;
    std::ifstream file(settings_.interval_file);
    std::stringstream text;
    text << file.rdbuf();
    const long seconds = strtol(text.str().c_str(), nullptr, 10);
    _interval_time = static_cast<int32_t>(
        std::clamp<long>(seconds, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

void QoPushPullStats::start_timer() {
    if (!qo_create_thread_timer(&QoPushPullStats::TimerCallBack, this, _timer_id)) {
        syslog(LOG_ERR, "PushPull Stats: Failed to create timer to save data!");
        return;
    }
    itimerspec period{};
    period.it_value.tv_sec = _interval_time;
    period.it_interval.tv_sec = _interval_time;
    if (timer_settime(_timer_id, 0, &period, nullptr) != 0) {
        timer_delete(std::exchange(_timer_id, nullptr));
        syslog(LOG_ERR, "PushPull Stats: Cannot set time in the timer!");
    }
}

void QoPushPullStats::TimerCallBack(union sigval value) {
    const QoBlockedSignal blocked(SIGTERM);
    auto* stats = static_cast<QoPushPullStats*>(value.sival_ptr);
    if (stats == nullptr) {
        syslog(LOG_ERR, "PushPull Stats: Failed to call save function!");
        return;
    }
    try {
        QoLiveObjects<QoPushPullStats>::if_alive(
            stats, [stats] { stats->save_stats_data(); });
    } catch (...) {
        syslog(LOG_ERR, "PushPull Stats: exception %s, a row is lost", qo_exception_text());
    }
}

// ---- counting ----

void QoPushPullStats::inc_publishes() { qo_count(_numPublish); }

void QoPushPullStats::inc_gets() { qo_count(_numGets); }

void QoPushPullStats::inc_subscriptions() { qo_count(_numSubscriptions); }

void QoPushPullStats::inc_clears() { qo_count(_numClears); }

void QoPushPullStats::inc_registers() { qo_count(_numRegisters); }

void QoPushPullStats::inc_unregisters() { qo_count(_numUnRegisters); }

void QoPushPullStats::inc_active_time(double seconds) { _activeTime += seconds; }

void QoPushPullStats::inc_publish_time(double seconds) { _publishTime += seconds; }

void QoPushPullStats::inc_read_time(double seconds) { _readTime += seconds; }

void QoPushPullStats::set_header_flag() { _logHeader = true; }

// ---- a row ----

std::shared_ptr<ResourceMgr> QoPushPullStats::registry() {
    const std::lock_guard guard(registry_mutex_);
    return resource_mgr;
}

void QoPushPullStats::save_stats_data() {
    try {
        const double now = settings_.monotonic_clock();
        // What is counted from here on belongs to the next row: a rotation of the file can take seconds.
        const Interval interval = counted_so_far();
        // Held for the whole row: an "init" request replaces the registry meanwhile.
        const std::shared_ptr<ResourceMgr> queues = registry();
        if (_logHeader) hand_over_header(*queues);
        const std::string fixed_part = fixed_columns(interval, now);
        const std::string queue_part = queues->monitor().getQueueData();
        // One record, so that the file holds all of it or nothing.
        *logger << fixed_part + queue_part + "\n";
        end_interval(interval);
    } catch (const std::exception& error) {
        syslog(LOG_ERR, "PushPull Stats: Exception during data logging: %s", error.what());
    }
}

QoPushPullStats::Interval QoPushPullStats::counted_so_far() const {
    return {_numPublish,   _numGets,        _numSaves,   _numSubscriptions, _numClears,
            _numRegisters, _numUnRegisters, _activeTime, _publishTime,      _readTime};
}

void QoPushPullStats::hand_over_header(ResourceMgr& registry) {
    // First, so that a registration meanwhile is not forgotten.
    _logHeader = false;
    try {
        logger->setLogFileHeader(fixed_header() + registry.monitor().getQueueNames() + "\n");
        logger->enableLogging();
    } catch (const std::exception&) {
        _logHeader = true;  // for the next row
        throw;
    }
}

// In the order of QO_STATS_COLUMNS.
std::string QoPushPullStats::fixed_columns(const Interval& interval, double now) const {
    const double elapsed = now - _startTime;
    std::string time_text;
    qo_get_time_str(time_text, settings_.clock());
    RowText row;
    row.add(time_text);
    row.add(elapsed > 0 ? interval.active_time / elapsed * kPercent : 0.0);
    row.add(sum(_numPublishTotal, interval.publishes));
    row.add(interval.publishes);
    row.add(average(interval.publish_time, interval.publishes) * kMilliseconds);
    row.add(sum(_numGetsTotal, interval.gets));
    row.add(interval.gets);
    row.add(average(interval.read_time, interval.gets) * kMilliseconds);
    row.add(sum(_numSavesTotal, interval.saves));
    row.add(interval.saves);
    row.add(sum(_numClearsTotal, interval.clears));
    row.add(interval.clears);
    row.add(interval.subscriptions);
    row.add(interval.registers);
    row.add(interval.unregisters);
    return row.text();
}

// Deliberate: _readTime is left out and keeps growing over the whole run, while _numGets starts again.
// Test: StatisticsRow.AverageReadTimeKeepsTheTimeOfEarlierIntervals
void QoPushPullStats::end_interval(const Interval& interval) {
    qo_count(_numPublishTotal, interval.publishes);
    qo_count(_numGetsTotal, interval.gets);
    qo_count(_numSavesTotal, interval.saves);
    qo_count(_numClearsTotal, interval.clears);
    // Down to zero, but for what was counted while the row was written.
    _numPublish -= interval.publishes;
    _numGets -= interval.gets;
    _activeTime -= interval.active_time;
    _publishTime -= interval.publish_time;
    _numSaves -= interval.saves;
    _numSubscriptions -= interval.subscriptions;
    _numClears -= interval.clears;
    _numRegisters -= interval.registers;
    _numUnRegisters -= interval.unregisters;
    start_interval();
}

void QoPushPullStats::start_interval() { _startTime = settings_.monotonic_clock(); }
