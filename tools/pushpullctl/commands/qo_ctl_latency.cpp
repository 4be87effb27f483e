// latency: how long the service takes to answer.
#include <algorithm>

#include "qo_ctl_commands.h"
#include "qo_ctl_distribution.h"
#include "qo_ctl_padded.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_json.h"

namespace {

using Clock = std::chrono::steady_clock;
using Time = QoCtlDistribution::Time;

constexpr uint64_t kMostTrips = 1000000;
constexpr size_t kBarWidth = 40;  // characters

std::string in_us(Time time) { return std::to_string(time.count()) + " us"; }

std::string bar_row(const QoCtlDistribution::Range& range, size_t most, size_t width) {
    size_t filled = range.count * kBarWidth / most;
    if (range.count > 0) filled = std::max<size_t>(filled, 1);
    return "  up to " + qo_ctl_padded(in_us(range.up_to), width, true) + "  " +
           qo_ctl_padded(std::string(filled, '#'), kBarWidth) + "  " + std::to_string(range.count) + "\n";
}

std::string table_of(const QoCtlDistribution& trips) {
    std::string text = qo_ctl_count(static_cast<long>(trips.count), "round trip") + ": min " + in_us(trips.min) +
                       ", median " + in_us(trips.median) + ", p90 " + in_us(trips.p90) + ", p99 " + in_us(trips.p99) +
                       ", max " + in_us(trips.max) + "\n";
    size_t most = 1;
    for (const QoCtlDistribution::Range& range : trips.ranges) most = std::max(most, range.count);
    for (const QoCtlDistribution::Range& range : trips.ranges)
        text += bar_row(range, most, in_us(trips.ranges.back().up_to).size());
    return text;
}

std::string json_of(const QoCtlDistribution& trips) {
    const QoJsonNode node(json_new(JSON_NODE));
    const auto add = [](JSONNODE* object, const char* name, int64_t number) {
        json_push_back(object, json_new_i(name, number));
    };
    add(node.get(), "count", static_cast<int64_t>(trips.count));
    add(node.get(), "min_us", trips.min.count());
    add(node.get(), "median_us", trips.median.count());
    add(node.get(), "p90_us", trips.p90.count());
    add(node.get(), "p99_us", trips.p99.count());
    add(node.get(), "max_us", trips.max.count());
    JSONNODE* const ranges = qo_json_append_named(node.get(), JSON_ARRAY, "histogram");
    for (const QoCtlDistribution::Range& range : trips.ranges) {
        JSONNODE* const entry = qo_json_append_named(ranges, JSON_NODE, "");
        add(entry, "up_to_us", range.up_to.count());
        add(entry, "count", static_cast<int64_t>(range.count));
    }
    return qo_ctl_render(node.get(), QoCtlStyle{});
}

class Latency : public QoCtlCommand {
public:
    Help help() const override {
        return {"latency", "Measure how long the service takes to answer",
                "Asks a question that is short to answer, waits for the answer, and does so --count times. What it\n"
                "measures is a way there and back with all that the service handles in between for others.\n"
                "Ctrl-C ends it with what was measured so far.\n\n"
                "Example:\n  pushpullctl latency --count 1000 --interval 0.005"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.number("--count", count_, 1, kMostTrips, "how many round trips (default 100)");
        line.seconds("--interval", interval_s_, "from one to the next (default 0.01)");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    QoCtlStatus measure(QoCtlSession& session, std::vector<Time>& trips) const;

    uint64_t count_ = 100;
    double interval_s_ = 0.01;
};

QoCtlStatus Latency::measure(QoCtlSession& session, std::vector<Time>& trips) const {
    const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(interval_s_));
    while (true) {
        const Clock::time_point begin = Clock::now();
        if (const QoCtlStatus status = session.fence(); status != QoCtlStatus::answered) return status;
        trips.push_back(std::chrono::ceil<Time>(Clock::now() - begin));
        if (trips.size() == count_) return QoCtlStatus::answered;
        if (const QoCtlStatus status = session.wait_until(begin + interval); status != QoCtlStatus::answered)
            return status;
    }
}

QoCtlStatus Latency::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status != QoCtlStatus::answered) return status;
    std::vector<Time> trips;
    status = measure(session, trips);
    session.close();
    signals.release();
    if (trips.empty()) return status;
    const QoCtlDistribution distribution = qo_ctl_distribution(std::move(trips));
    const bool table = qo_ctl_stdout_style(common).formatted;
    return qo_ctl_print(table ? table_of(distribution) : json_of(distribution), status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_latency() { return std::make_unique<Latency>(); }
