#include "ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <cinttypes>
#include <cstdint>
#include <ctime>

namespace ServiceManager {

void TellReady(const std::string& status) {
    sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str());
}

// The time tells a manager that sent the signal itself that this is its answer.
void TellReloading() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t usec = int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%" PRId64, usec);
}

void TellStopping() {
    sd_notify(0, "STOPPING=1");
}

void TellAlive() {
    sd_notify(0, "WATCHDOG=1");
}

std::optional<std::chrono::microseconds> WatchdogInterval() {
    uint64_t usec = 0;
    if (sd_watchdog_enabled(0, &usec) <= 0) return std::nullopt;
    return std::chrono::microseconds(usec);
}

}  // namespace ServiceManager
