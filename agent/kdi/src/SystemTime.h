#pragma once

#include <time.h>

#include <cstdint>

namespace Kdi {

inline int64_t ClockUsec(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// Microseconds since the epoch.
inline int64_t WallUsec() {
    return ClockUsec(CLOCK_REALTIME);
}
// Microseconds that no change of the clock moves, and that stand still while the host sleeps, as
// the time-outs of the kernel's sets do.
inline int64_t SteadyUsec() {
    return ClockUsec(CLOCK_MONOTONIC);
}

}  // namespace Kdi
