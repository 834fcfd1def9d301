// Launching the main application again, as the user whose application it was.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Remembers as whom and in which environment the application runs, for openApplication(); replaces what was remembered
/// before. On macOS the system knows.
void noteRunningApplication(std::int32_t pid);

/// Launches the application whose executable lies at `path`. Returns at once; `completion` is called on the main queue,
/// with the error's text when the launch failed.
void openApplication(const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(std::optional<std::string> error)> completion);

}  // namespace platform
