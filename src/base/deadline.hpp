// Absolute deadlines on CLOCK_REALTIME, the clock that condition variables with default attributes wait on.
#pragma once

#include <cstdint>
#include <ctime>

namespace kel {

inline constexpr long nanoseconds_per_second = 1000000000L;

// `start` moved by a signed count of milliseconds (truncating division).
constexpr timespec deadline_after(timespec start, int32_t ms) {
    start.tv_sec += ms / 1000;
    start.tv_nsec += (ms % 1000) * 1000000L;
    if (start.tv_nsec >= nanoseconds_per_second) {
        start.tv_nsec -= nanoseconds_per_second;
        start.tv_sec += 1;
    }
    return start;
}

inline timespec deadline_from_now(int32_t ms) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return deadline_after(now, ms);
}

}  // namespace kel
