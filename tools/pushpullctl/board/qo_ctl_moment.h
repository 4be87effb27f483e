/// Moments as texts: "2026-11-22T13:00:00.123Z" (RFC 3339). Pure functions but for the clock; any thread.
#ifndef QO_CTL_MOMENT_H
#define QO_CTL_MOMENT_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

/// Milliseconds since 1970, UTC.
using QoCtlMoment = int64_t;

QoCtlMoment qo_ctl_now();

std::string qo_ctl_moment_text(QoCtlMoment moment);

/// "2026-11-22T13:00:00Z"
std::string qo_ctl_second_text(time_t second);

/// @return nothing for a text of any other form, or a day that no calendar has
std::optional<QoCtlMoment> qo_ctl_read_moment(std::string_view text);

#endif
