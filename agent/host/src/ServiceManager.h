#pragma once

#include <chrono>
#include <optional>
#include <string>

// What the service tells the manager that started it. Without a manager each call does nothing.
namespace ServiceManager {

// `status` is one line for people.
void TellReady(const std::string& status);
// A reload begins; TellReady ends it.
void TellReloading();
void TellStopping();
void TellAlive();

// How often TellAlive is expected at the latest; nothing if it isn't.
std::optional<std::chrono::microseconds> WatchdogInterval();

}  // namespace ServiceManager
