/// What bench/compare measures of a contender.
#ifndef QO_BENCH_MEASURES_H
#define QO_BENCH_MEASURES_H

#include <vector>

#include "contender.h"
#include "results.h"

/// How much of it.
struct QoPlan {
    int publishes = 1000;  // of each size, one after the other, and as many with more in flight
    int fan_outs = 200;    // publishes to many subscribers
    int reads = 200;       // of each extent
    int memory_publishes = 100000;
};

/// Names of rows that others look for.
std::string qo_told_row(size_t size);
std::string qo_rate_row(size_t size);
std::string qo_fan_out_row(int subscribers);
inline constexpr char kQoReadSubtreeRow[] = "read /system";
inline constexpr char kQoMemoryRow[] = "memory after publishes, RSS";

/// From a publish until its subscriber is told, and the rate with 8 in flight: what the log has a part in.
void qo_measure_publishes(const QoContenderKind& kind, const QoPlan& plan, QoResults& results);
/// The time to start, fan-out, reading.
void qo_measure_others(const QoContenderKind& kind, const QoPlan& plan, const std::vector<QoLeaf>& leaves,
                       QoResults& results);
/// Resident memory with 16 components, before and after many publishes.
void qo_measure_memory(const QoContenderKind& kind, const QoPlan& plan, QoResults& results);

/// All values of the built-in tree.
std::vector<QoLeaf> qo_built_in_leaves();

#endif
