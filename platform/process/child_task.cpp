#include "platform/process/child_task.h"

#include <signal.h>

#include "platform/process/child_task_implementation.h"

namespace platform {

ChildTask::ChildTask(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output) {
  arguments.insert(arguments.begin(), std::move(launchPath));
  implementation_ = Implementation::make(std::move(arguments), std::move(output));
}

ChildTask::~ChildTask() {
  setTerminationHandler({});
}

void ChildTask::setTerminationHandler(std::function<void()> handler) {
  implementation_->terminationHandler = std::move(handler);
}

Result<void> ChildTask::launch() {
  return implementation_->launch();
}

std::int32_t ChildTask::processIdentifier() const {
  return implementation_->pid();
}

bool ChildTask::isRunning() const {
  return !implementation_->waitForExit({});
}

void ChildTask::terminate() {
  implementation_->signal(SIGTERM);
}

void ChildTask::kill() {
  implementation_->signal(SIGKILL);
}

bool ChildTask::waitForExit(std::chrono::milliseconds limit) {
  return implementation_->waitForExit(limit);
}

void ChildTask::waitUntilExit() {
  while (!waitForExit(std::chrono::hours(1))) continue;
}

void runShellCommand(const std::string& command) {
  ChildTask shell("/bin/sh", {"-c", command});
  if (shell.launch()) shell.waitUntilExit();
}

}  // namespace platform
