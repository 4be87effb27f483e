// Times as numbers and texts.
#include "qo_utilities_time.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

static_assert(sizeof(time_t) >= 8, "a 32-bit time ends in January 2038; see cmake/QoCompileOptions.cmake");

constexpr int64_t kLowest = std::numeric_limits<qo_time_value_t>::min();
constexpr int64_t kHighest = std::numeric_limits<qo_time_value_t>::max();
constexpr int64_t kBeyondAnyLimit = int64_t{1} << 40;  // where sums and place values stop growing

}  // namespace

double qo_pushpull_get_timestamp() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long microseconds = now.tv_nsec / 1000;
    return static_cast<double>(now.tv_sec) + static_cast<double>(microseconds) * 0.000001;
}

int str_to_time(const std::string& text, qo_time_value_t& out) {
    int64_t sum = 0;
    int64_t place_value = 1;
    for (size_t position = text.size(); position-- > 0;) {
        const char character = text[position];
        if (character == '-' && position == 0) {
            sum = -sum;
        } else if (character >= '0' && character <= '9') {
            sum = std::min(sum + (character - '0') * place_value, kBeyondAnyLimit);
            place_value = std::min(place_value * 10, kBeyondAnyLimit);
        } else {
            return -1;
        }
    }
    const int64_t limit = sum < 0 ? kLowest : kHighest;
    // Deliberate: the limit stays there when the sum is beyond it: it is the nearest time that there is.
    // Test: StrToTime.FailsBeyondTheUpperLimitWithTheLimitInTheOutput
    out = static_cast<qo_time_value_t>(limit);
    if (std::abs(sum) > std::abs(limit)) return -1;
    out = static_cast<qo_time_value_t>(sum);
    return 0;
}

int time_to_str(qo_time_value_t value, std::string& text) {
    text.insert(0, std::to_string(value));
    return 0;
}

void qo_get_time_str(std::string& text) { qo_get_time_str(text, time(nullptr)); }

void qo_get_time_str(std::string& text, time_t time) {
    text.clear();
    tm utc{};
    char formatted[32];
    if (gmtime_r(&time, &utc) == nullptr) return;
    if (strftime(formatted, sizeof formatted, "%b %d %H:%M:%S", &utc) > 0) text = formatted;
}
