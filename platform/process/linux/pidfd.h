// Waiting on a pidfd (pidfd_open(2)), a handle that never refers to a later process with the same PID.
#pragma once

#include <chrono>

extern "C" {  // missing from glibc 2.36's header
#include <sys/pidfd.h>
}

namespace platform {

/// Waits until the process has ended, reaped or not, for at most `limit`; returns whether it has. Any thread.
bool waitForEnd(int pidfd, std::chrono::milliseconds limit);

}  // namespace platform
