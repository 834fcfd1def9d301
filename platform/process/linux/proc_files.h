// What the kernel shows of a process as files (proc(5)). It is true of the process that is meant only if that has not
// ended afterwards: pids are given out again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The file /proc/PID/`name`, a mebibyte of it at most; absent when it cannot be read.
std::optional<std::string> readProcessFile(std::int32_t pid, const char* name);

/// The decimal numbers behind a key, such as "Uid:", of the text of /proc/PID/status; none when it is not there.
std::vector<std::uint32_t> numbersOf(std::string_view status, std::string_view key);

}  // namespace platform
