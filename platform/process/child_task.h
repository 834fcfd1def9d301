// Child processes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// A child process. Main queue only. The child may outlive this object; the main queue reaps it when it ends.
///
/// The child gets the given arguments, a minimal fixed environment, default signal handling, "/" as its working
/// directory, /dev/null as standard input, its own session, and no other descriptor of this process than its output.
class ChildTask {
 public:
  class Implementation;

  /// `output` becomes the child's standard output and standard error. If it is empty, the child inherits both.
  ChildTask(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output = {});
  ~ChildTask();
  ChildTask(const ChildTask&) = delete;
  ChildTask& operator=(const ChildTask&) = delete;

  /// Sets the function that is called once, on the main queue, when the child has ended; an empty one removes it. May
  /// be changed at any time. A replaced handler is not called, nor is any handler after this object is gone.
  void setTerminationHandler(std::function<void()> handler);

  /// Starts the child. Called once. The sentence of a failure is the system's error text.
  Result<void> launch();

  /// The child's process ID; 0 if it was not launched.
  std::int32_t processIdentifier() const;

  /// Whether the child has been launched and has not ended.
  bool isRunning() const;

  void terminate();  ///< Sends SIGTERM. No effect if the child is not running.
  void kill();       ///< Sends SIGKILL. No effect if the child is not running.

  /// Blocks until the child has ended, at most for `limit`, and returns whether it has. The termination handler is
  /// called later all the same.
  [[nodiscard]] bool waitForExit(std::chrono::milliseconds limit);

  /// waitForExit() without a limit.
  void waitUntilExit();

 private:
  std::shared_ptr<Implementation> implementation_;
};

/// Runs a shell command (sh(1)) as a child like the above, and waits until it ends. Its exit status is ignored.
void runShellCommand(const std::string& command);

}  // namespace platform
