// The part of a child task that differs between systems.
#pragma once

#include <sys/types.h>

#include "platform/process/child_task.h"

namespace platform {

class ChildTask::Implementation {
 public:
  /// The first argument is the path of the executable.
  static std::shared_ptr<Implementation> make(std::vector<std::string> arguments, FileDescriptor output);

  virtual ~Implementation() = default;

  virtual Result<void> launch() = 0;
  virtual pid_t pid() const = 0;                                  ///< 0 if none was launched
  virtual bool waitForExit(std::chrono::milliseconds limit) = 0;  ///< true at once if no child is running
  virtual void signal(int number) = 0;                            ///< no effect if no child is running

  std::function<void()> terminationHandler;  ///< called once, on the main queue, and emptied before
};

}  // namespace platform
