/// Queues as a table that fits a screen, and as JSON. Pure functions; any thread.
#ifndef QO_CTL_QUEUE_TABLE_H
#define QO_CTL_QUEUE_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

#include "qo_ctl_queue_list.h"

/// A line of titles and one for each queue. What does not fit into `width` characters is left out column by column, the
/// least important first; what still does not is cut.
/// @param service the name of the service's queue, which is marked in colour
std::string qo_ctl_queue_table(const std::vector<QoCtlQueue>& queues, const std::string& service, size_t width,
                               bool coloured);

/// A JSON text per line.
std::string qo_ctl_queue_lines(const std::vector<QoCtlQueue>& queues, const std::string& service);

/// "stopped: display (812)"; of several readers, one behind the other. The state is not lost where the line is cut.
std::string qo_ctl_readers_shown(const QoCtlQueue& queue);

#endif
