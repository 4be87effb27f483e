/// What "top" shows, put on a screen of any size. Pure functions; any thread.
#ifndef QO_CTL_TOP_SCREEN_H
#define QO_CTL_TOP_SCREEN_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qo_ctl_queue_list.h"

/// The board at one moment.
struct QoCtlTopView {
    std::string service;  // the name of its queue
    std::vector<QoCtlQueue> queues;
    std::optional<uint64_t> resident_kib;    // of the service's process
    bool has_log = false;                    // what follows is known
    std::map<std::string, double> requests;  // a second, by kind
    std::deque<std::string> refusals;        // the last of them, the latest at the end
};

/// The component that is furthest behind: of the queues that hold messages, that which has been full for longest, then
/// the fullest. Null when none holds any.
const QoCtlQueue* qo_ctl_slowest(const QoCtlTopView& view);

/// Lines of at most `width` characters, at most `height` of them.
std::string qo_ctl_top_screen(const QoCtlTopView& view, size_t width, size_t height, bool coloured);

/// The queues, then a line about the service; a JSON text per line.
std::string qo_ctl_top_lines(const QoCtlTopView& view);

#endif
