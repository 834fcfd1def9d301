// Facts about processes, and signals to them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/base/file_descriptor.h"

namespace platform {

/// Full path, as the file system's bytes, of the executable that a process runs. Absent if there is no such process or
/// it runs no file. An executable that was replaced or deleted keeps its path, but macOS may no longer know the path.
std::optional<std::string> executablePath(std::int32_t pid);

/// Effective user ID of a process; absent if there is no such process.
std::optional<std::uint32_t> effectiveUserID(std::int32_t pid);

/// A handle to one process. On Linux it holds a pidfd (pidfd_open(2)), so kill() never hits a later process that reused
/// the PID. macOS has no such handle; the PID is all there is.
class Process {
 public:
  /// Absent if there is no such process or it cannot be opened.
  static std::optional<Process> find(std::int32_t pid);

  /// On Linux `handle` is a pidfd, which kill() uses; elsewhere it is empty.
  Process(std::int32_t pid, FileDescriptor handle) : pid_(pid), handle_(std::move(handle)) {}

  std::int32_t pid() const { return pid_; }
  int handle() const { return handle_.get(); }  ///< the pidfd; negative if there is none

  /// Whether the process has ended; always false without a handle. With a handle, false also means that the PID has not
  /// been reused, so what was just read about the PID belongs to this process.
  bool hasEnded() const;

  /// Sends SIGKILL. No effect if the process has ended.
  void kill() const;

 private:
  std::int32_t pid_;
  FileDescriptor handle_;
};

}  // namespace platform
