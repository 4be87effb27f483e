// Writing and reading moments.
#include "qo_ctl_moment.h"

#include <charconv>
#include <cstdio>

namespace {

constexpr int64_t kMsPerSecond = 1000;
constexpr std::string_view kPattern = "0000-00-00T00:00:00.000Z";

std::string calendar(time_t second) {
    tm utc{};
    gmtime_r(&second, &utc);
    char text[80];
    const int length = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", utc.tm_year + 1900,
                                     utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return {text, static_cast<size_t>(length)};
}

bool has_form(std::string_view text) {
    if (text.size() != kPattern.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (kPattern[i] == '0' ? !digit : text[i] != kPattern[i]) return false;
    }
    return true;
}

int number_at(std::string_view text, size_t begin, size_t length) {
    int number = 0;
    std::from_chars(text.data() + begin, text.data() + begin + length, number);
    return number;
}

}  // namespace

QoCtlMoment qo_ctl_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * kMsPerSecond + now.tv_nsec / 1000000;
}

std::string qo_ctl_moment_text(QoCtlMoment moment) {
    const int64_t second = (moment >= 0 ? moment : moment - (kMsPerSecond - 1)) / kMsPerSecond;
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(moment - second * kMsPerSecond));
    return calendar(static_cast<time_t>(second)) + fraction;
}

std::string qo_ctl_second_text(time_t second) { return calendar(second) + "Z"; }

std::optional<QoCtlMoment> qo_ctl_read_moment(std::string_view text) {
    if (!has_form(text)) return std::nullopt;
    tm utc{};
    utc.tm_year = number_at(text, 0, 4) - 1900;
    utc.tm_mon = number_at(text, 5, 2) - 1;
    utc.tm_mday = number_at(text, 8, 2);
    utc.tm_hour = number_at(text, 11, 2);
    utc.tm_min = number_at(text, 14, 2);
    utc.tm_sec = number_at(text, 17, 2);
    const QoCtlMoment moment = static_cast<int64_t>(timegm(&utc)) * kMsPerSecond + number_at(text, 20, 3);
    // A day that the calendar does not have would come out as another.
    return qo_ctl_moment_text(moment) == text ? std::optional(moment) : std::nullopt;
}
