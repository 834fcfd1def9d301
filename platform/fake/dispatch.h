// Queues whose time passes only when a unit test says so.
#pragma once

#include <chrono>

namespace platform::fake {

/// Drops all waiting work.
void resetQueues();

/// Advances the time of queues and timers, and runs the work that falls due, in order, on the calling thread. Zero runs
/// only work that is due already. The clock of platform/system/clock.h does not advance.
void passTime(std::chrono::nanoseconds time);

}  // namespace platform::fake
