// Launches the main application again, as the user who ran it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/process/process.h"

namespace platform {

/// Remembers the identity and environment of a running process for openApplication(), in place of those remembered
/// before. Main queue only. `userID` is the user known to be behind the process. Nothing is remembered if the process
/// has ended or now runs as another user, for example because it executed a set-user-ID program. Does nothing on macOS,
/// where the system knows the user.
void noteRunningApplication(const Process& process, std::uint32_t userID);

/// Launches the application with its executable at `path`, with the remembered identity and environment. `identifier`
/// is its bundle identifier. Main queue only. Returns at once; `completion` is called later, on the main queue, with
/// the outcome.
void openApplication(const std::string& identifier, const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(const Result<void>& launched)> completion);

}  // namespace platform
