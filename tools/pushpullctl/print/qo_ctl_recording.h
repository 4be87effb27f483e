/// What was published, with the moments at which it was heard: a JSON text per line. Pure functions; any thread.
#ifndef QO_CTL_RECORDING_H
#define QO_CTL_RECORDING_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "qo_ctl_moment.h"
#include "qo_ctl_output.h"

/// {"time":"2026-11-22T13:00:00.123Z","pointer":"/system","text":{...}}; a text that is not JSON stands as a string.
/// @param pointers that are followed; "pointer" is the first of them that the text is about
std::string qo_ctl_recorded(QoCtlMoment time, std::span<const std::string> pointers, std::string_view text,
                            QoCtlStyle style);

struct QoCtlRecorded {
    QoCtlMoment time = 0;
    std::string object;  // what was published; "" for a text that is no object and so cannot be published
};

/// @return nothing when the line is not of such a form
std::optional<QoCtlRecorded> qo_ctl_read_recorded(std::string_view line);

#endif
