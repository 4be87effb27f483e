/// Counters of the service's work, and the file that they are written to.
#ifndef QO_PUSHPULL_STATS_H
#define QO_PUSHPULL_STATS_H

#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "qo_pushpull_counter.h"
#include "qo_pushpull_files.h"
#include "qo_util_log_file_manager.h"
#include "qo_utilities_time.h"

class ResourceMgr;

/// Where the statistics find their files and their time.
struct QoStatsSettings {
    std::string interval_file = std::string(QO_DATA_DIRECTORY) + "pushpull_stats.cfg";
    std::string log_directory = QO_STATS_LOG_DIRECTORY;
    QoWallClock clock = qo_wall_clock;  // of the rows and of the file's rotation
    QoMonotonicClock monotonic_clock = qo_pushpull_get_timestamp;
};

/// Counts what the service does and how long that takes, and writes a row of it to a file at every interval, with
/// a group of columns for each supervised queue. Exists only when statistics are wanted.
///
/// The counters are plain fields without a lock: the handlers count on the main thread, the saver also on its
/// timer's thread, the row is written on a third, and a count may fall on either side of an interval's boundary.
class QoPushPullStats {
public:
    /// Everything zero.
    explicit QoPushPullStats(QoStatsSettings settings = {});
    /// Waits for a row that is being written.
    ~QoPushPullStats();
    QoPushPullStats(const QoPushPullStats&) = delete;
    QoPushPullStats& operator=(const QoPushPullStats&) = delete;

    /// Starts the collection for a registry, whose queues are reported too; called again with another one, the rows go
    /// on with that. The interval file holds the seconds between two rows, 3600 without it; 0 leaves the rows
    /// unwritten. Failures are logged at LOG_ERR: counting goes on, rows stay unwritten. Main thread.
    void init_stats_collection(std::shared_ptr<ResourceMgr> registry);

    /// Main thread; inc_saves also the saver's.
    void inc_publishes();
    void inc_gets();
    void inc_saves() { qo_count(_numSaves); }  // here, so that the store needs nothing of the service
    void inc_subscriptions();
    void inc_clears();
    void inc_registers();
    void inc_unregisters();
    /// Durations in seconds, not negative. Main thread.
    void inc_active_time(double seconds);
    void inc_publish_time(double seconds);
    void inc_read_time(double seconds);

    /// Makes the next row hand a new header to the file, because the columns changed; a file begun keeps its own.
    void set_header_flag();

    /// Writes one row and starts a new interval; only after init_stats_collection. The timer's thread. An exception
    /// on the way is logged at LOG_ERR and leaves the counters as they were.
    void save_stats_data();
    /// The timer's thread function; the value carries the QoPushPullStats.
    static void TimerCallBack(union sigval value);

private:
    /// What a row reports of its interval; times in seconds.
    struct Interval {
        int32_t publishes;
        int32_t gets;
        int32_t saves;
        int32_t subscriptions;
        int32_t clears;
        int32_t registers;
        int32_t unregisters;
        double active_time;
        double publish_time;
        double read_time;  // since the start of the run
    };

    void read_interval();
    void start_timer();
    Interval counted_so_far() const;
    void hand_over_header(ResourceMgr& registry);
    std::string fixed_columns(const Interval& interval, double now) const;
    void end_interval(const Interval& interval);
    void start_interval();
    std::shared_ptr<ResourceMgr> registry();

    std::shared_ptr<ResourceMgr> resource_mgr;  // guarded by registry_mutex_
    std::shared_ptr<QoUtilLogFileManager> logger;
    std::atomic<bool> _logHeader;
    int32_t _numPublish;
    int32_t _numGets;
    int32_t _numSaves;
    int32_t _numSubscriptions;
    int32_t _numClears;
    int32_t _numRegisters;
    int32_t _numUnRegisters;
    int32_t _numPublishTotal;
    int32_t _numGetsTotal;
    int32_t _numSavesTotal;
    int32_t _numClearsTotal;
    timer_t _timer_id;
    int32_t _interval_time;  // seconds
    double _startTime;       // of the interval, monotonic seconds
    double _activeTime;      // seconds
    double _publishTime;     // seconds
    double _readTime;        // seconds, since the start and not of the interval
    QoStatsSettings settings_;
    std::mutex registry_mutex_;
};
#endif
