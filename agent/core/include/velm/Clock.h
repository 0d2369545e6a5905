#pragma once

#include "velm/Export.h"

// The one source of time for every decision. All operations may be called on any thread.
namespace VelmCore {

// Milliseconds, 32 bits, wrapping: only differences mean something. Reads the monotonic clock, or,
// while one is set, the clock that a replay or a test moves.
VELM_API unsigned int SystemTickCount();

// Replaces the monotonic clock by one that stands still at `msec` until it is moved.
VELM_API void SetTickCount(unsigned int msec);
// Moves the clock forward. Sets it first, to the present tick, if the monotonic clock is in use.
VELM_API void AdvanceTickCount(unsigned int msec);
VELM_API void UseSystemClock();

}  // namespace VelmCore
