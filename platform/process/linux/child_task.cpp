// Child processes made by posix_spawn(3), each watched on the main loop through its pidfd.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>

#include <cerrno>
#include <utility>

#include "platform/dispatch/linux/event_loop.h"
#include "platform/process/child_task_implementation.h"
#include "platform/process/linux/pidfd.h"

namespace platform {

namespace {

constexpr char searchPath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

/// What a child inherits from this process.
struct SpawnSettings {
  explicit SpawnSettings(int output) {
    check(-posix_spawnattr_init(&attributes));
    check(-posix_spawn_file_actions_init(&actions));

    check(-posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    check(-posix_spawnattr_setsigdefault(&attributes, &all));
    check(-posix_spawnattr_setsigmask(&attributes, &none));

    // The output comes first, because its own number may be below 3.
    if (output >= 0) {
      check(-posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO));
      check(-posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO));
    }
    check(-posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    check(-posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1));
    check(-posix_spawn_file_actions_addchdir_np(&actions, "/"));
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
};

void reap(idtype_t kind, int id) {
  siginfo_t status;
  while (waitid(kind, static_cast<id_t>(id), &status, WEXITED) != 0 && errno == EINTR) {
  }
}

// After the launch, the event source keeps this object alive until the child ends.
class Child : public ChildTask::Implementation, public std::enable_shared_from_this<Child> {
 public:
  Child(std::vector<std::string> arguments, FileDescriptor output)
      : arguments_(std::move(arguments)), output_(std::move(output)) {}

  Result<void> launch() override {
    return attempt([this] {
      spawn();
      watch();
    });
  }

  pid_t pid() const override { return pid_; }

  bool waitForExit(std::chrono::milliseconds limit) override { return !pidfd_ || waitForEnd(pidfd_.get(), limit); }

  void signal(int number) override {
    if (pidfd_) pidfd_send_signal(pidfd_.get(), number, nullptr, 0);
  }

 private:
  void spawn() {
    SpawnSettings settings(output_.get());
    std::vector<char*> arguments;
    for (auto& argument : arguments_) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    std::string path(searchPath);
    char* environment[] = {path.data(), nullptr};
    pid_t pid = 0;
    check(-posix_spawn(&pid, arguments[0], &settings.actions, &settings.attributes, arguments.data(), environment));
    pid_ = pid;
    output_.reset();
  }

  void watch() {
    try {
      pidfd_.reset(pidfd_open(pid_, 0));
      if (!pidfd_) throw lastFailure();
      end_ = EventSource::io(pidfd_.get(), EPOLLIN, [self = shared_from_this()](std::uint32_t) { self->ended(); });
    } catch (const Failure&) {
      // A child that cannot be watched must not be left running.
      ::kill(pid_, SIGKILL);
      reap(P_PID, std::exchange(pid_, 0));
      pidfd_.reset();
      throw;
    }
  }

  void ended() {
    end_ = {};
    reap(P_PIDFD, pidfd_.get());
    if (auto handler = std::exchange(terminationHandler, {})) handler();
  }

  std::vector<std::string> arguments_;
  FileDescriptor output_;
  pid_t pid_ = 0;
  FileDescriptor pidfd_;
  EventSource end_;
};

}  // namespace

std::shared_ptr<ChildTask::Implementation> ChildTask::Implementation::make(std::vector<std::string> arguments,
                                                                           FileDescriptor output) {
  return std::make_shared<Child>(std::move(arguments), std::move(output));
}

}  // namespace platform
