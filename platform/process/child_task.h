// Children of this process.
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

  /// Starts the child. The sentence of a failure is the system's reason, empty where it gives none. Called once.
  Result<void> launch();

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
