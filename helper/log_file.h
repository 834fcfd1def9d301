// The helper's log file, which lies in a world-writable folder.
#pragma once

#include <string>

inline constexpr char BRHLogFilePath[] = "/tmp/BrimoHelper.log";

/// Directs the log to the file at the path. The file must be regular, have a single link, belong to the effective user
/// and be writable by nobody else. Any other file is deleted and created again, twice at most; after that the system
/// log says that there is no log file.
void BRHOpenLogFile(const std::string& path);
