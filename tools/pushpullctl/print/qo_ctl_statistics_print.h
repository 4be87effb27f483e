/// The statistics as tables, JSON and a picture. Pure functions; any thread.
#ifndef QO_CTL_STATISTICS_PRINT_H
#define QO_CTL_STATISTICS_PRINT_H

#include <cstddef>
#include <string>
#include <vector>

#include "qo_ctl_statistics.h"

/// The last `count` rows as an aligned table with titles.
std::string qo_ctl_statistics_table(const std::vector<QoCtlStatisticsRow>& rows, size_t count);
/// The totals of all queues as an aligned table with titles, the busiest queue first.
std::string qo_ctl_queue_totals_table(const std::vector<QoCtlStatisticsRow>& rows);
/// The last `count` rows as one JSON text per line.
std::string qo_ctl_statistics_json(const std::vector<QoCtlStatisticsRow>& rows, size_t count);
/// A picture of the rows over time (SVG): activity, publishes and reads, their durations, depths of the queues.
std::string qo_ctl_statistics_plot(const std::vector<QoCtlStatisticsRow>& rows);

#endif
