// What each system has to know of a child.
#pragma once

#include <sys/types.h>

#include "platform/process/child_task.h"

namespace platform {

class ChildTask::Implementation {
 public:
  /// The launch path is the first argument.
  static std::shared_ptr<Implementation> make(std::vector<std::string> arguments, FileDescriptor output);

  virtual ~Implementation() = default;

  virtual Result<void> launch() = 0;
  virtual pid_t pid() const = 0;                                  ///< 0: none was launched
  virtual bool waitForExit(std::chrono::milliseconds limit) = 0;  ///< true at once when none runs
  virtual void signal(int number) = 0;                            ///< nothing happens when none runs

  std::function<void()> terminationHandler;  ///< taken and called on the main queue
};

}  // namespace platform
