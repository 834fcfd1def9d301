// Children that are only recorded. machine.h says how tests control them.
#include "platform/process/child_task.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "platform/fake/machine.h"

namespace platform {

namespace {

void record(std::string step) {
  fake::machine().steps.push_back(std::move(step));
}

}  // namespace

class ChildTask::Implementation {
 public:
  std::string path;
  std::vector<std::string> arguments;
  FileDescriptor output;
  std::function<void()> handler;
  std::int32_t pid = 0;
  bool isRunning = false;
};

void fake::endChild(std::int32_t pid) {
  auto child = machine().children.at(pid);
  child->isRunning = false;
  if (auto handler = std::exchange(child->handler, {})) handler();
}

ChildTask::ChildTask(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output)
    : implementation_(std::make_shared<Implementation>()) {
  implementation_->path = std::move(launchPath);
  implementation_->arguments = std::move(arguments);
  implementation_->output = std::move(output);
}

ChildTask::~ChildTask() {
  implementation_->handler = {};
}

void ChildTask::setTerminationHandler(std::function<void()> handler) {
  implementation_->handler = std::move(handler);
}

Result<void> ChildTask::launch() {
  auto& child = *implementation_;
  record(fmt::format("launch {} {}", child.path, fmt::join(child.arguments, " ")));
  if (fake::machine().launchFailure) return *fake::machine().launchFailure;
  child.pid = 1001 + static_cast<std::int32_t>(fake::machine().children.size());
  child.isRunning = true;
  fake::machine().children[child.pid] = implementation_;
  if (child.output && write(child.output.get(), "output\n", 7) != 7) record("no output");
  return {};
}

std::int32_t ChildTask::processIdentifier() const {
  return implementation_->pid;
}

bool ChildTask::isRunning() const {
  return implementation_->isRunning;
}

void ChildTask::terminate() {
  record(fmt::format("terminate {}", implementation_->pid));
  if (!fake::machine().childrenIgnoreTermination) implementation_->isRunning = false;
}

void ChildTask::kill() {
  record(fmt::format("kill child {}", implementation_->pid));
  implementation_->isRunning = false;
}

bool ChildTask::waitForExit(std::chrono::milliseconds limit) {
  record(fmt::format("wait {} ms", limit.count()));
  return !implementation_->isRunning;
}

void runShellCommand(const std::string& command) {
  record("sh " + command);
}

}  // namespace platform
