// Launching the main application again, as the user whose application it was.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/process/process.h"

namespace platform {

/// Remembers as whom and in which environment the process runs, for openApplication(); replaces what was remembered
/// before. `userID` is the user who is known to stand behind the process: one that runs as somebody else by now, as it
/// does after executing a set-user-ID program, or that has ended, leaves nothing remembered. On the main thread. On
/// macOS the system knows.
void noteRunningApplication(const Process& process, std::uint32_t userID);

/// Launches the application whose executable lies at `path`, as the remembered process ran. `identifier` is its bundle
/// identifier. On the main thread. Returns at once; `completion` is called on the main queue, with what has become of
/// the launch.
void openApplication(const std::string& identifier, const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(const Result<void>& launched)> completion);

}  // namespace platform
