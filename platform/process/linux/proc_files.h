// Files below /proc/PID (proc(5)). PIDs are reused: the content belongs to the intended process only if that process is
// still alive afterwards.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The content of /proc/PID/`name`, cut after one mebibyte; absent if it cannot be read.
std::optional<std::string> readProcessFile(std::int32_t pid, const char* name);

/// The decimal numbers after a key, such as "Uid:", in the text of /proc/PID/status; empty if the key is missing.
std::vector<std::uint32_t> numbersOf(std::string_view status, std::string_view key);

}  // namespace platform
