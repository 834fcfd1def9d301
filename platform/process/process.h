// Processes: facts about them, and signals to them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/base/file_descriptor.h"

namespace platform {

/// Full path of the executable that a process runs, in bytes as the file system has them; absent when there is no such
/// process or it runs no file. An executable that was replaced or deleted keeps the path that it had; macOS may know
/// none.
std::optional<std::string> executablePath(std::int32_t pid);

/// Effective user ID of a process; absent when there is no such process.
std::optional<std::uint32_t> effectiveUserID(std::int32_t pid);

/// A process, held so that its signal never reaches a later process of the same number: what is asked about the number
/// after find() is true of this process, or of one that kill() does not reach. On Linux a pidfd (pidfd_open(2)); macOS
/// has no such handle, and the number is all there is.
class Process {
 public:
  /// Absent when there is no such process, or it cannot be held.
  static std::optional<Process> find(std::int32_t pid);

  /// The handle is what kill() goes through: on Linux a pidfd, elsewhere empty.
  Process(std::int32_t pid, FileDescriptor handle) : pid_(pid), handle_(std::move(handle)) {}

  std::int32_t pid() const { return pid_; }
  int handle() const { return handle_.get(); }  ///< negative when there is none

  /// Whether the process has ended. While it has not, its number is no other process's: asked after something else
  /// about the number, it says whom the answer was about. False where there is no handle.
  bool hasEnded() const;

  /// Sends SIGKILL. Nothing happens when the process has ended.
  void kill() const;

 private:
  std::int32_t pid_;
  FileDescriptor handle_;
};

}  // namespace platform
