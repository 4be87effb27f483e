/// One way to count. Header only.
#ifndef QO_PUSHPULL_COUNTER_H
#define QO_PUSHPULL_COUNTER_H

#include <cstdint>
#include <limits>

/// Adds `amount` (0 or more) to a counter that is printed as a signed 32-bit number. It stays at its largest
/// value instead of overflowing: a board that runs for ten years passes two thousand million messages.
inline void qo_count(int32_t& counter, int32_t amount = 1) {
    constexpr int32_t kLargest = std::numeric_limits<int32_t>::max();
    counter = counter > kLargest - amount ? kLargest : counter + amount;
}

#endif
