// Reports of refused clients, for the administrator. They go only to the system log.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Logs why a process of a user was refused. So that nobody can flood the log, logs at most one line per user and
/// minute, and at most 256 lines per minute in all. Main queue only.
void logRefusal(std::uint32_t user, std::int32_t pid, const std::string& reason);

}  // namespace platform
