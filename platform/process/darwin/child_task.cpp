// Child processes, each with a thread that waits for its end.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/base/thread.h"
#include "platform/dispatch/dispatch.h"
#include "platform/process/child_task_implementation.h"

namespace platform {

namespace {

struct FileActions {
  FileActions() { check(-posix_spawn_file_actions_init(&value)); }
  ~FileActions() { posix_spawn_file_actions_destroy(&value); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t value;
};

struct Attributes {
  Attributes() { check(-posix_spawnattr_init(&value)); }
  ~Attributes() { posix_spawnattr_destroy(&value); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t value;
};

/// Starts a program, whose path is the first argument. With an empty `output`, the program inherits this process's
/// standard output and error. Throws a Failure if that fails.
pid_t spawn(const std::vector<std::string>& arguments, const FileDescriptor& output) {
  FileActions actions;
  if (output) {
    // The output comes first, because its own number may be below 3.
    check(-posix_spawn_file_actions_adddup2(&actions.value, output.get(), STDOUT_FILENO));
    check(-posix_spawn_file_actions_adddup2(&actions.value, STDOUT_FILENO, STDERR_FILENO));
  } else {
    check(-posix_spawn_file_actions_addinherit_np(&actions.value, STDOUT_FILENO));
    check(-posix_spawn_file_actions_addinherit_np(&actions.value, STDERR_FILENO));
  }
  check(-posix_spawn_file_actions_addopen(&actions.value, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
  check(-posix_spawn_file_actions_addchdir_np(&actions.value, "/"));

  Attributes attributes;
  sigset_t none, ordinary;
  sigemptyset(&none);
  sigfillset(&ordinary);
  sigdelset(&ordinary, SIGKILL);
  sigdelset(&ordinary, SIGSTOP);
  check(-posix_spawnattr_setsigmask(&attributes.value, &none));
  check(-posix_spawnattr_setsigdefault(&attributes.value, &ordinary));
  // The session brings a process group of its own: launchd would otherwise end the child together with this job
  // (launchd.plist(5)).
  check(-posix_spawnattr_setflags(&attributes.value, POSIX_SPAWN_CLOEXEC_DEFAULT | POSIX_SPAWN_SETSIGMASK |
                                                         POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));

  std::vector<char*> argumentList;
  for (const auto& argument : arguments) argumentList.push_back(const_cast<char*>(argument.c_str()));
  argumentList.push_back(nullptr);
  char searchPath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
  char* environment[] = {searchPath, nullptr};
  pid_t pid = 0;
  check(-posix_spawn(&pid, argumentList[0], &actions.value, &attributes.value, argumentList.data(), environment));
  return pid;
}

void reap(pid_t pid) {
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) continue;
}

/// Shared with the thread that waits for the child's end.
class Child : public ChildTask::Implementation, public std::enable_shared_from_this<Child> {
 public:
  Child(std::vector<std::string> arguments, FileDescriptor output)
      : arguments_(std::move(arguments)), output_(std::move(output)) {}

  Result<void> launch() override {
    auto pid = attempt([this] { return spawn(arguments_, output_); });
    if (!pid) return pid.error();
    output_.reset();
    pid_ = *pid;
    isRunning_ = true;
    auto watcher = startThread([self = shared_from_this()] { self->awaitEnd(); });
    if (watcher) {
      watcher->detach();
      return {};
    }
    // A child that cannot be watched must not be left running.
    ::kill(pid_, SIGKILL);
    reap(std::exchange(pid_, 0));
    isRunning_ = false;
    return watcher.error();
  }

  pid_t pid() const override { return pid_; }

  bool waitForExit(std::chrono::milliseconds limit) override {
    std::unique_lock lock(mutex_);
    return end_.wait_for(lock, limit, [this] { return !isRunning_; });
  }

  void signal(int number) override {
    std::lock_guard lock(mutex_);
    if (isRunning_) ::kill(pid_, number);
  }

 private:
  void awaitEnd() {
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) continue;
    {
      std::lock_guard lock(mutex_);
      reap(pid_);
      isRunning_ = false;
    }
    end_.notify_all();
    dispatch::async(dispatch::mainQueue(), [self = shared_from_this()] {
      if (auto handler = std::exchange(self->terminationHandler, nullptr)) handler();
    });
  }

  const std::vector<std::string> arguments_;
  FileDescriptor output_;
  std::mutex mutex_;
  std::condition_variable end_;
  bool isRunning_ = false;  // while true, the PID cannot have been reused
  pid_t pid_ = 0;
};

}  // namespace

std::shared_ptr<ChildTask::Implementation> ChildTask::Implementation::make(std::vector<std::string> arguments,
                                                                           FileDescriptor output) {
  return std::make_shared<Child>(std::move(arguments), std::move(output));
}

}  // namespace platform
