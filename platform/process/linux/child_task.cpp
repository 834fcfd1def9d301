// Children by posix_spawn(3), each watched by its pidfd on the main loop.
#include "platform/process/child_task.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/dispatch/linux/event_loop.h"
#include "platform/process/linux/pidfd.h"

namespace platform {

namespace {

constexpr char searchPath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

/// What a child is given of this process, and what it is not.
class SpawnSettings {
 public:
  explicit SpawnSettings(int output) {
    require(posix_spawnattr_init(&attributes));
    require(posix_spawn_file_actions_init(&actions));

    require(posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    require(posix_spawnattr_setsigdefault(&attributes, &all));
    require(posix_spawnattr_setsigmask(&attributes, &none));

    // The output first: it may itself have a number below 3.
    if (output >= 0) {
      require(posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO));
      require(posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO));
    }
    require(posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    require(posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1));
    require(posix_spawn_file_actions_addchdir_np(&actions, "/"));
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;

 private:
  static void require(int error) {
    if (error != 0) throw std::system_error(error, std::generic_category());
  }
};

void clearAway(idtype_t kind, int id) {
  siginfo_t status;
  while (waitid(kind, static_cast<id_t>(id), &status, WEXITED) != 0 && errno == EINTR) {
  }
}

}  // namespace

// From the launch on, the watch on the child's end keeps it alive.
class ChildTask::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output)
      : arguments_(std::move(arguments)), output_(std::move(output)) {
    arguments_.insert(arguments_.begin(), std::move(launchPath));
  }

  void setHandler(std::function<void()> handler) { handler_ = std::move(handler); }

  std::optional<std::string> launch() {
    try {
      pid_ = spawn();
      watch();
      return std::nullopt;
    } catch (const std::system_error& failure) {
      return failure.code().message();
    }
  }

  pid_t pid() const { return pid_; }

  bool waitForExit(std::chrono::milliseconds limit) const { return !pidfd_ || waitForEnd(pidfd_.get(), limit); }

  void signal(int number) const {
    if (pidfd_) pidfd_send_signal(pidfd_.get(), number, nullptr, 0);
  }

 private:
  pid_t spawn() {
    SpawnSettings settings(output_.get());
    std::vector<char*> arguments;
    for (auto& argument : arguments_) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    std::string path(searchPath);
    char* environment[] = {path.data(), nullptr};
    pid_t pid;
    int error = posix_spawn(&pid, arguments[0], &settings.actions, &settings.attributes, arguments.data(), environment);
    if (error != 0) throw std::system_error(error, std::generic_category());
    output_.reset();
    return pid;
  }

  void watch() {
    try {
      pidfd_.reset(pidfd_open(pid_, 0));
      if (!pidfd_) throw std::system_error(errno, std::generic_category());
      end_ = EventSource::io(pidfd_.get(), EPOLLIN, [self = shared_from_this()](std::uint32_t) { self->ended(); });
    } catch (const std::system_error&) {
      // What nobody can watch is not left running.
      ::kill(pid_, SIGKILL);
      clearAway(P_PID, std::exchange(pid_, 0));
      pidfd_.reset();
      throw;
    }
  }

  void ended() {
    end_ = {};
    clearAway(P_PIDFD, pidfd_.get());
    if (auto handler = std::exchange(handler_, {})) handler();
  }

  std::vector<std::string> arguments_;  // the launch path is the first
  FileDescriptor output_;
  std::function<void()> handler_;
  pid_t pid_ = 0;
  FileDescriptor pidfd_;
  EventSource end_;
};

ChildTask::ChildTask(std::string launchPath, std::vector<std::string> arguments, FileDescriptor output)
    : implementation_(
          std::make_shared<Implementation>(std::move(launchPath), std::move(arguments), std::move(output))) {}

ChildTask::~ChildTask() {
  implementation_->setHandler({});
}

void ChildTask::setTerminationHandler(std::function<void()> handler) {
  implementation_->setHandler(std::move(handler));
}

std::optional<std::string> ChildTask::launch() {
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
  while (!waitForExit(std::chrono::hours(1))) {
  }
}

void runShellCommand(const std::string& command) {
  ChildTask shell("/bin/sh", {"-c", command});
  if (!shell.launch()) shell.waitUntilExit();
}

}  // namespace platform
