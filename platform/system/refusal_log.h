// Why clients were refused, for the administrator: the system log alone has it.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Logs why a process of a user was refused: at most one line a user and minute, so that nobody can flood the log. On
/// the main queue only.
void logRefusal(std::uint32_t user, std::int32_t pid, const std::string& reason);

}  // namespace platform
