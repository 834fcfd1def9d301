// The helper's log file, in a folder that everybody may write to.
#pragma once

#include <string>

inline constexpr char BRHLogFilePath[] = "/tmp/BrimoHelper.log";

/// Has the log go to the file at the path, provided that nobody else can have planted it: a regular file of one link
/// that the process's effective user owns and nobody else may write. What is there instead is deleted, twice at most;
/// then the system log is told that there will be no file.
void BRHOpenLogFile(const std::string& path);
