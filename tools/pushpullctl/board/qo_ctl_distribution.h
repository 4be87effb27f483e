/// How measured times are spread. Pure functions; any thread.
#ifndef QO_CTL_DISTRIBUTION_H
#define QO_CTL_DISTRIBUTION_H

#include <chrono>
#include <cstddef>
#include <vector>

struct QoCtlDistribution {
    using Time = std::chrono::microseconds;
    struct Range {
        Time up_to;  // inclusive; the range begins behind that of the one before
        size_t count = 0;
    };

    size_t count = 0;
    Time min{0};
    Time median{0};
    Time p90{0};
    Time p99{0};
    Time max{0};
    std::vector<Range> ranges;  // of 1, 2, 5, 10, 20, ... from the one of the least to that of the greatest
};

/// Each percentile is a time that was measured: the least one that so many of a hundred do not exceed.
QoCtlDistribution qo_ctl_distribution(std::vector<QoCtlDistribution::Time> times);

#endif
