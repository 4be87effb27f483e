/// Output that never holds up its producer: a client that waits for a slow terminal or pager does not empty its
/// queue, and the service restarts the device when a queue stays full.
#ifndef QO_CTL_BACKLOG_H
#define QO_CTL_BACKLOG_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "qo_ctl_event.h"

/// Lines that a thread of its own writes to a descriptor in their order.
class QoCtlBacklog {
public:
    /// @param descriptor stays the caller's
    /// @param limit      bytes that may wait; a line that goes beyond is dropped and counted
    /// @param on_broken  called once, on the writing thread, when nothing can be written any more: the reader is
    ///                   gone, or an error
    QoCtlBacklog(int descriptor, size_t limit, std::function<void()> on_broken);
    /// Drops what was not written.
    ~QoCtlBacklog();
    QoCtlBacklog(const QoCtlBacklog&) = delete;
    QoCtlBacklog& operator=(const QoCtlBacklog&) = delete;

    /// Never waits.
    void push(std::string line);

    bool broken() const { return broken_; }
    /// The errno of a broken one; EPIPE when the reader is gone.
    int error() const { return error_; }

    /// Waits until all lines are written, at most for `patience`; drops what is left then. No push after it.
    void finish(std::chrono::milliseconds patience);

    /// Lines that were dropped since it was made.
    uint64_t dropped() const { return dropped_; }

private:
    void run();
    bool take(std::string& line);
    bool wait_for_line();
    bool write_line(const std::string& line);
    void break_off(int error);

    const int descriptor_;
    const size_t limit_;
    const std::function<void()> on_broken_;
    QoCtlEvent news_;  // a line, or the wish to finish
    QoCtlEvent quit_;  // to end at once
    QoCtlEvent done_;  // the thread is about to end
    std::atomic<bool> broken_{false};
    std::atomic<int> error_{0};
    std::atomic<uint64_t> dropped_{0};
    std::mutex mutex_;
    std::deque<std::string> lines_;  // guarded by mutex_
    size_t waiting_ = 0;             // bytes in lines_; guarded by mutex_
    bool finishing_ = false;         // guarded by mutex_
    std::thread thread_;
};

#endif
