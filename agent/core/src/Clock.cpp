#include "velm/Clock.h"

#include <atomic>
#include <cstdint>

#include <time.h>

namespace VelmCore {
namespace {

// A clock that was set is kept as this mark and the tick in the low half, so that one load tells
// both. 0: the monotonic clock.
constexpr uint64_t SET_MARK = uint64_t{1} << 32;
std::atomic<uint64_t> s_SetClock{0};

unsigned int MonotonicMsec() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t msec =
        static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
    return static_cast<unsigned int>(msec);
}

}  // namespace

unsigned int SystemTickCount() {
    const uint64_t clock = s_SetClock.load(std::memory_order_acquire);
    return clock ? static_cast<unsigned int>(clock) : MonotonicMsec();
}

void SetTickCount(unsigned int msec) {
    s_SetClock.store(SET_MARK | msec, std::memory_order_release);
}

void AdvanceTickCount(unsigned int msec) {
    uint64_t before = s_SetClock.load(std::memory_order_relaxed);
    uint64_t after;
    do {
        const unsigned int tick = before ? static_cast<unsigned int>(before) : MonotonicMsec();
        after = SET_MARK | (tick + msec);
    } while (!s_SetClock.compare_exchange_weak(before, after, std::memory_order_acq_rel));
}

void UseSystemClock() {
    s_SetClock.store(0, std::memory_order_release);
}

}  // namespace VelmCore
