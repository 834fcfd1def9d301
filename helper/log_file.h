// The helper's log file, which lies in a world-writable folder.
#pragma once

#include <string>

inline constexpr char BRHLogFilePath[] = "/tmp/BrimoHelper.log";

/// Directs the log to the file at the path. The file must be regular, have a single link, belong to the effective user
/// and be writable by nobody else. Any other file is deleted and created again. If it cannot be deleted, or if the
/// third attempt fails too, there is no log file, and a line in the system log says that the file was unsafe.
void BRHOpenLogFile(const std::string& path);
