// What is done with a pidfd (pidfd_open(2)), the handle on a process that no later process comes to stand behind.
#pragma once

#include <chrono>

extern "C" {  // which glibc 2.36's header forgets
#include <sys/pidfd.h>
}

namespace platform {

/// Whether the process has ended, reaped or not; waits for that as long as `limit`. Any thread.
bool waitForEnd(int pidfd, std::chrono::milliseconds limit);

}  // namespace platform
