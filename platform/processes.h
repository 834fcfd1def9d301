// Facts about processes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// Full path of the executable that a process runs, in bytes as the file system has them; absent when there is no such
/// process or it runs no file. An executable that was replaced or deleted keeps the path that it had.
std::optional<std::string> executablePath(std::int32_t pid);

}  // namespace platform
