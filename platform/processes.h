// Processes: facts about them, signals to them, and children.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/file_descriptor.h"

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

/// A child process: started with the arguments given, a minimal fixed environment, default signal handling, "/" as its
/// folder, /dev/null as its input, a session of its own and no descriptor of ours but its output. Used on the main
/// thread only. A child outlives its object, and is cleared away by the main queue when it ends.
class ChildTask {
 public:
  class Implementation;

  /// `output` becomes standard output and standard error of the child; empty: it has ours.
  ChildTask(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output = {});
  ~ChildTask();
  ChildTask(const ChildTask&) = delete;
  ChildTask& operator=(const ChildTask&) = delete;

  /// Has `handler` called on the main queue, once, when the child has ended; empty: nothing. May be changed at any
  /// time; one that was replaced is not called any more, nor is any when this object is gone.
  void setTerminationHandler(std::function<void()> handler);

  /// Starts the child. Absent on success, else the reason, empty where the system gives none. Called once.
  [[nodiscard]] std::optional<std::string> launch();

  /// Process ID of the launched child; 0 when none was.
  std::int32_t processIdentifier() const;

  /// Whether the child was launched and has not ended yet.
  bool isRunning() const;

  void terminate();  ///< Sends SIGTERM; nothing happens when the child does not run.
  void kill();       ///< Sends SIGKILL; nothing happens when the child does not run.

  /// Blocks until the child has ended, at most as long as `limit`. Whether it has. The termination handler is called
  /// all the same, afterwards.
  [[nodiscard]] bool waitForExit(std::chrono::milliseconds limit);

  /// Blocks until the child has ended.
  void waitUntilExit();

 private:
  std::shared_ptr<Implementation> implementation_;
};

/// Runs a command of the shell (sh(1)), as a child like the above, and waits for its end; its result is ignored.
void runShellCommand(const std::string& command);

}  // namespace platform
