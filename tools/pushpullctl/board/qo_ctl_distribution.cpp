// Percentiles and a histogram.
#include "qo_ctl_distribution.h"

#include <algorithm>

namespace {

using Time = QoCtlDistribution::Time;

Time percentile(const std::vector<Time>& sorted, size_t percent) {
    const size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[std::max<size_t>(rank, 1) - 1];
}

/// 1, 2, 5, 10, 20, 50, ...
Time next_bound(Time bound) {
    Time power{1};
    while (power * 10 <= bound) power *= 10;
    return power * (bound / power == 1 ? 2 : bound / power == 2 ? 5 : 10);
}

std::vector<QoCtlDistribution::Range> ranges_of(const std::vector<Time>& sorted) {
    std::vector<QoCtlDistribution::Range> ranges;
    Time bound{1};
    auto next = sorted.begin();
    while (next != sorted.end()) {
        const auto end = std::upper_bound(next, sorted.end(), bound);
        if (end != next || !ranges.empty()) ranges.push_back({bound, static_cast<size_t>(end - next)});
        next = end;
        bound = next_bound(bound);
    }
    return ranges;
}

}  // namespace

QoCtlDistribution qo_ctl_distribution(std::vector<Time> times) {
    QoCtlDistribution distribution;
    if (times.empty()) return distribution;
    std::sort(times.begin(), times.end());
    constexpr size_t kMedian = 50;
    constexpr size_t kMost = 90;
    constexpr size_t kNearlyAll = 99;
    distribution.count = times.size();
    distribution.min = times.front();
    distribution.median = percentile(times, kMedian);
    distribution.p90 = percentile(times, kMost);
    distribution.p99 = percentile(times, kNearlyAll);
    distribution.max = times.back();
    distribution.ranges = ranges_of(times);
    return distribution;
}
