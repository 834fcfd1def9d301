// Children, each with a thread that waits for its end.
#include "platform/process/child_task.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/base/thread.h"
#include "platform/dispatch/dispatch.h"

namespace platform {

namespace {

void check(int error) {
  if (error != 0) throw std::system_error(error, std::generic_category());
}

struct FileActions {
  FileActions() { check(posix_spawn_file_actions_init(&value)); }
  ~FileActions() { posix_spawn_file_actions_destroy(&value); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t value;
};

struct Attributes {
  Attributes() { check(posix_spawnattr_init(&value)); }
  ~Attributes() { posix_spawnattr_destroy(&value); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t value;
};

/// Starts a program; an empty `output` leaves it ours. Throws std::system_error.
pid_t spawn(const std::string& path, const std::vector<std::string>& arguments, const FileDescriptor& output) {
  FileActions actions;
  if (output) {
    // First of all: it may itself have a number below 3.
    check(posix_spawn_file_actions_adddup2(&actions.value, output.get(), STDOUT_FILENO));
    check(posix_spawn_file_actions_adddup2(&actions.value, STDOUT_FILENO, STDERR_FILENO));
  } else {
    check(posix_spawn_file_actions_addinherit_np(&actions.value, STDOUT_FILENO));
    check(posix_spawn_file_actions_addinherit_np(&actions.value, STDERR_FILENO));
  }
  check(posix_spawn_file_actions_addopen(&actions.value, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
  check(posix_spawn_file_actions_addchdir_np(&actions.value, "/"));

  Attributes attributes;
  sigset_t none, ordinary;
  sigemptyset(&none);
  sigfillset(&ordinary);
  sigdelset(&ordinary, SIGKILL);
  sigdelset(&ordinary, SIGSTOP);
  check(posix_spawnattr_setsigmask(&attributes.value, &none));
  check(posix_spawnattr_setsigdefault(&attributes.value, &ordinary));
  // With a session comes a process group: launchd ends that of a job together with the job (launchd.plist(5)).
  check(posix_spawnattr_setflags(&attributes.value, POSIX_SPAWN_CLOEXEC_DEFAULT | POSIX_SPAWN_SETSIGMASK |
                                                        POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));

  std::vector<char*> argumentList{const_cast<char*>(path.c_str())};
  for (const auto& argument : arguments) argumentList.push_back(const_cast<char*>(argument.c_str()));
  argumentList.push_back(nullptr);
  char searchPath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
  char* environment[] = {searchPath, nullptr};
  pid_t pid = 0;
  check(posix_spawn(&pid, path.c_str(), &actions.value, &attributes.value, argumentList.data(), environment));
  return pid;
}

/// Takes leave of a child that has ended.
void reap(pid_t pid) {
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) continue;
}

/// A child, shared with the thread that waits for its end.
struct Child {
  std::mutex mutex;
  std::condition_variable end;
  bool isRunning = false;  // while it is, the number is the child's own
  pid_t pid = 0;
  std::function<void()> terminationHandler;  // of the main thread

  void signal(int number) {
    std::lock_guard lock(mutex);
    if (isRunning) ::kill(pid, number);
  }

  /// Whether the child does not run, at the latest when `limit` has passed.
  bool waitForEnd(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return end.wait_for(lock, limit, [this] { return !isRunning; });
  }
};

void awaitEnd(const std::shared_ptr<Child>& child) {
  siginfo_t info;
  const auto id = static_cast<id_t>(child->pid);
  while (waitid(P_PID, id, &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) continue;
  {
    std::lock_guard lock(child->mutex);
    reap(child->pid);
    child->isRunning = false;
  }
  child->end.notify_all();
  dispatch::async(dispatch::mainQueue(), [child] {
    if (auto handler = std::exchange(child->terminationHandler, nullptr)) handler();
  });
}

}  // namespace

class ChildTask::Implementation {
 public:
  Implementation(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output)
      : launchPath_(std::move(launchPath)), arguments_(std::move(arguments)), output_(std::move(output)) {}

  Child& child() const { return *child_; }

  void launch() {
    child_->pid = spawn(launchPath_, arguments_, output_);
    output_.reset();
    child_->isRunning = true;
    try {
      startThread([child = child_] { awaitEnd(child); }).detach();
    } catch (const std::system_error&) {
      // What nobody can watch is not left running.
      ::kill(child_->pid, SIGKILL);
      reap(std::exchange(child_->pid, 0));
      child_->isRunning = false;
      throw;
    }
  }

 private:
  const std::string launchPath_;
  const std::vector<std::string> arguments_;
  FileDescriptor output_;
  const std::shared_ptr<Child> child_ = std::make_shared<Child>();
};

ChildTask::ChildTask(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output)
    : implementation_(
          std::make_shared<Implementation>(std::move(launchPath), std::move(arguments), std::move(output))) {}

ChildTask::~ChildTask() {
  setTerminationHandler({});
}

void ChildTask::setTerminationHandler(std::function<void()> handler) {
  implementation_->child().terminationHandler = std::move(handler);
}

std::optional<std::string> ChildTask::launch() {
  try {
    implementation_->launch();
    return std::nullopt;
  } catch (const std::system_error& failure) {
    return failure.code().message();
  }
}

std::int32_t ChildTask::processIdentifier() const {
  return implementation_->child().pid;
}

bool ChildTask::isRunning() const {
  return !implementation_->child().waitForEnd({});
}

void ChildTask::terminate() {
  implementation_->child().signal(SIGTERM);
}

void ChildTask::kill() {
  implementation_->child().signal(SIGKILL);
}

bool ChildTask::waitForExit(std::chrono::milliseconds limit) {
  return implementation_->child().waitForEnd(limit);
}

void ChildTask::waitUntilExit() {
  while (!waitForExit(std::chrono::hours(1))) continue;
}

void runShellCommand(const std::string& command) {
  ChildTask shell("/bin/sh", {"-c", command});
  if (!shell.launch()) shell.waitUntilExit();
}

}  // namespace platform
