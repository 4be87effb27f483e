/// Time readings and conversions between time values and decimal text. All functions may be called from any
/// thread; none throws anything but std::bad_alloc.
#ifndef QO_UTILITIES_TIME_H
#define QO_UTILITIES_TIME_H

#include <time.h>

#include <cstdint>
#include <string>

/// Seconds as the texts of the system carry them: 32 bits signed, whatever the width of time_t.
using qo_time_value_t = int32_t;

/// Seconds of the monotonic clock, cut to whole microseconds. For measuring durations; not related to the date.
double qo_pushpull_get_timestamp();
/// A clock of that kind.
using QoMonotonicClock = double (*)();

/// Reads a decimal integer, which may begin with '-'. An empty text is 0, and so is "-" alone.
/// @return 0 with the value in `out`; -1 for any other character, with `out` as it was; -1 for a value beyond
///         32 bits, with the nearest limit (-2147483648 or 2147483647) in `out`.
int str_to_time(const std::string& text, qo_time_value_t& out);

/// Inserts the decimal text of `value` in front of what `text` holds; callers usually pass an empty string.
/// @return 0 always.
int time_to_str(qo_time_value_t value, std::string& text);

/// Sets `text` to the current UTC time, month name, day and time of day: "Jan 05 13:04:59". Empty on failure.
void qo_get_time_str(std::string& text);
/// The same for a time in Unix seconds.
void qo_get_time_str(std::string& text, time_t time);

#endif
