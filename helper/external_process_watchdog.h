// When a client's connection ends, kills the processes that the main application has listed in the watchdog file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr char BRHWatchdogFilePath[] = "/tmp/Brimo-External-Processes-Watchdog.json";

struct BRHWatchedProcess {
  std::int32_t pid;  ///< 2 or more
  std::string path;  ///< of the executable, as platform::executablePath() returns it; not empty
  bool operator==(const BRHWatchedProcess&) const = default;
};

/// Parses the content of a watchdog file, [[pid, "path"], …]. Skips elements of any other form. Absent when the text is
/// not a JSON array.
std::optional<std::vector<BRHWatchedProcess>> BRHParseWatchedProcesses(std::string_view text);

/// Kills each process in the watchdog file that still runs the listed executable as the file's owner, then deletes the
/// file. Leaves in place a file that is unsafe or cannot be read. Main queue only.
void BRHKillWatchedExternalProcesses(const std::string& watchdogFile = BRHWatchdogFilePath);
