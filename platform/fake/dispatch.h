// Queues whose time stands still until a unit test has it pass.
#pragma once

#include <chrono>

namespace platform::fake {

/// Forgets all work that waits.
void resetQueues();

/// Lets time pass for the queues and timers, and runs on the calling thread what falls due, in its order; zero runs
/// what is due already. The clock of platform/system/clock.h is the fake machine's and stands still.
void passTime(std::chrono::nanoseconds time);

}  // namespace platform::fake
