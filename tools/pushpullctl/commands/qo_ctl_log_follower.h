/// Follows the service's traffic in a log, as it happens.
#ifndef QO_CTL_LOG_FOLLOWER_H
#define QO_CTL_LOG_FOLLOWER_H

#include <chrono>
#include <deque>

#include "qo_ctl_log_source.h"
#include "qo_ctl_traffic.h"

/// Tells the traffic when nothing more is to be expected of a request: the log has no line for that. One thread only.
class QoCtlLogFollower {
public:
    /// Both stay the caller's.
    QoCtlLogFollower(QoCtlLogSource& source, QoCtlTraffic& traffic) : source_(source), traffic_(traffic) {}

    /// Takes what there is, waiting for it that long.
    QoCtlLogSource::State read(std::chrono::milliseconds patience) {
        const QoCtlLogSource::State state = source_.read(lines_, patience);
        const Clock::time_point now = Clock::now();
        if (!lines_.empty()) last_line_ = now;
        for (; !lines_.empty(); lines_.pop_front()) traffic_.add(lines_.front());
        const bool over = traffic_.is_waiting() && now - last_line_ >= (traffic_.is_settled() ? kSettled : kUnsettled);
        if (over || state == QoCtlLogSource::State::ended) traffic_.finish();
        return state;
    }

private:
    using Clock = std::chrono::steady_clock;

    // Without a further line a request counts as finished: soon when its last line was seen; else only after what the
    // service waits for each full queue, a second.
    static constexpr std::chrono::milliseconds kSettled{100};
    static constexpr std::chrono::milliseconds kUnsettled{2500};

    QoCtlLogSource& source_;
    QoCtlTraffic& traffic_;
    std::deque<QoCtlLogLine> lines_;
    Clock::time_point last_line_ = Clock::now();
};

#endif
