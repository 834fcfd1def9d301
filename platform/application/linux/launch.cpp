#include "platform/application/linux/launch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "platform/application/linux/environment.h"
#include "platform/base/file_descriptor.h"
#include "platform/base/file_io.h"

namespace platform {

namespace {

constexpr std::chrono::duration<unsigned> patience(10);  // limit for entering the user's home folder

/// A report from a child: the step that failed, with its errno. No step means that only execve() is left to do. The
/// step is a string literal, which has the same address in both processes.
struct Report {
  const char* failedStep;
  int number;
};

/// Everything the child needs, prepared before the fork. At the fork, other threads may hold any lock, so the child may
/// call only the functions that signal-safety(7) lists; above all, it must not allocate memory.
class Launch {
 public:
  Launch(const std::string& path, const std::vector<std::string>& arguments, ApplicationIdentity identity)
      : arguments_(arguments), identity_(std::move(identity)) {
    arguments_.insert(arguments_.begin(), path);
    completeEnvironment(identity_.environment, identity_.user);
    home_ = valueOf(identity_.environment, "HOME");
    argumentPointers_ = pointersTo(arguments_);
    environmentPointers_ = pointersTo(identity_.environment);
  }

  Report run() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {"pipe", errno};
    FileDescriptor reading(ends[0]), writing(ends[1]), null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null) return {"open", errno};
    // These copies have numbers above 2: if a standard descriptor is closed, the originals may have its number.
    null_.reset(fcntl(null.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    report_.reset(fcntl(writing.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!null_ || !report_) return {"fcntl", errno};

    // The application is a grandchild: it belongs to process 1 once its parent has ended, so nothing here needs to reap
    // it.
    pid_t child = fork();
    if (child == 0) startGrandchild();
    if (child < 0) return {"fork", errno};
    writing.reset();
    report_.reset();
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return readReports(reading.get());
  }

 private:
  [[noreturn]] void startGrandchild() const {
    pid_t grandchild = _Fork();  // async-signal-safe, unlike fork()
    if (grandchild == 0) becomeApplication();
    if (grandchild < 0) fail("fork");
    _exit(0);
  }

  [[noreturn]] void becomeApplication() const {
    if (setsid() < 0) fail("setsid");
    for (int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      if (dup2(null_.get(), standard) < 0) fail("dup2");
    }
    if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) fail("close_range");
    for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);

    if (setgroups(identity_.groups.size(), identity_.groups.data()) != 0) fail("setgroups");
    if (setresgid(identity_.group, identity_.group, identity_.group) != 0) fail("setresgid");
    if (setresuid(identity_.user, identity_.user, identity_.user) != 0) fail("setresuid");
    if (identity_.user != 0 && setuid(0) == 0) {
      errno = EPERM;
      fail("the process could become root again");
    }

    umask(S_IWGRP | S_IWOTH);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    enterHome();
    execve(argumentPointers_[0], argumentPointers_.data(), environmentPointers_.data());
    fail("execve");
  }

  // Runs as the user, because root may have no access to the home folder. The folder may be on a file system that does
  // not answer; in that case the first report stands, and the alarm ends this process as soon as the file system lets
  // it.
  void enterHome() const {
    tell({"chdir", ETIMEDOUT});
    alarm(patience.count());
    if (chdir(home_.c_str()) != 0 && chdir("/") != 0) fail("chdir");
    alarm(0);
    tell({nullptr, getpid()});
  }

  [[noreturn]] void fail(const char* step) const {
    tell({step, errno});
    _exit(127);
  }

  void tell(const Report& report) const { [[maybe_unused]] auto length = write(report_.get(), &report, sizeof report); }

  /// Reads reports until no child has the pipe open any more, because of execve() or its end, but at most for
  /// `patience`. Returns the last report.
  static Report readReports(int descriptor) {
    Report result{"fork", ECHILD};
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (true) {
      auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      pollfd state{.fd = descriptor, .events = POLLIN, .revents = 0};
      if (poll(&state, 1, std::max(0, static_cast<int>(left.count()))) == 0) return result;
      if (state.revents == 0) continue;
      Report report;
      auto length = readInto(descriptor, {reinterpret_cast<char*>(&report), sizeof report});
      if (!length || *length < sizeof report) return result;
      result = report;
    }
  }

  std::vector<std::string> arguments_;
  ApplicationIdentity identity_;
  std::string home_;
  std::vector<char*> argumentPointers_, environmentPointers_;
  FileDescriptor null_, report_;
};

}  // namespace

Result<void> launchApplication(const std::string& path, const std::vector<std::string>& arguments,
                               ApplicationIdentity identity) {
  auto report = Launch(path, arguments, std::move(identity)).run();
  if (report.failedStep) return failureOf(report.number, report.failedStep);
  return {};
}

}  // namespace platform
