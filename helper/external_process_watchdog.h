// Ending the processes that the main application has listed for its own death.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr char BRHWatchdogFilePath[] = "/tmp/Brimo-External-Processes-Watchdog.json";

struct BRHWatchedProcess {
  std::int32_t pid;  ///< 2 or more
  std::string path;  ///< executable, as platform::executablePath() tells it; not empty
  bool operator==(const BRHWatchedProcess&) const = default;
};

/// The processes that a watchdog file lists, [[pid, "path"], …]; what is no such pair is left out. Absent when the text
/// is no JSON array.
std::optional<std::vector<BRHWatchedProcess>> BRHParseWatchedProcesses(std::string_view text);

/// Kills every process listed in the watchdog file that still runs the listed executable as the owner of the file, and
/// deletes the file. A file that may have been planted is refused and left. On the main queue.
void BRHKillWatchedExternalProcesses(const std::string& watchdogFile = BRHWatchdogFilePath);
