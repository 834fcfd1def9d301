// Tests what children inherit on Linux, and what they leave in this process.
#include "platform/process/child_task.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cerrno>

#include "platform/dispatch/linux/event_loop.h"
#include "tests/support/linux/signed_files.h"
#include "tests/support/this_machine.h"

namespace platform {
namespace {

/// Runs children, and after each of them serves the events that wait on the main loop.
class LinuxChildTask : public testing::Test {
 protected:
  LinuxChildTask() { serveWhatWaits(); }

  static void serveWhatWaits() {
    while (sd_event_run(mainEventLoop(), 0) > 0) {
    }
  }

  Result<void> run(const std::string& path, std::vector<std::string> arguments, FileDescriptor toOutput) const {
    ChildTask task(path, std::move(arguments), std::move(toOutput));
    auto launched = task.launch();
    task.waitUntilExit();
    serveWhatWaits();
    return launched;
  }

  FileDescriptor openOutput() const {
    return FileDescriptor(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
  }

  test::TemporaryFolder folder;
  std::string output = folder / "output";
};

TEST_F(LinuxChildTask, NoSignalIsBlockedOrIgnored) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  signal(SIGPIPE, SIG_IGN);
  // The child is not a shell, because a shell would change these settings. The C library itself ignores two signals.
  EXPECT_TRUE(run("/bin/grep", {"-E", "^Sig(Blk|Ign)", "/proc/self/status"}, openOutput()));
  signal(SIGPIPE, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_THAT(test::readFile(output), testing::MatchesRegex("SigBlk:\t0{16}\nSigIgn:\t0{7}[01][08]0{7}\n"));
}

TEST_F(LinuxChildTask, TheOutputMayBeAnyDescriptor) {
  for (int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    FileDescriptor ours(fcntl(number, F_DUPFD_CLOEXEC, 3));
    dup3(openOutput().get(), number, O_CLOEXEC);
    auto launched = run("/bin/sh", {"-c", "echo out; echo error >&2; cat"}, FileDescriptor(number));
    dup2(ours.get(), number);  // the child's pidfd may have had this number
    EXPECT_TRUE(launched);
    EXPECT_EQ(test::readFile(output), "out\nerror\n") << number;
  }
}

TEST_F(LinuxChildTask, NothingIsLeftOpen) {
  const auto descriptors = openDescriptors();
  EXPECT_TRUE(run("/bin/true", {}, openOutput()));
  auto program = folder / "neither a program nor a script";
  test::writeFile(program, "x");
  EXPECT_STREQ(run(program, {}, openOutput()).error().what(), "Permission denied");
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  EXPECT_STREQ(run(program, {}, openOutput()).error().what(), "Exec format error");
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(LinuxChildTask, AChildThatCannotBeWatchedIsNotLeftRunning) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  // The descriptors in `used` make `next`, and so the limit, greater than 3. posix_spawn() rejects descriptor numbers
  // that are not below the limit, and a launch passes it numbers up to 3.
  FileDescriptor used[] = {FileDescriptor(dup(0)), FileDescriptor(dup(0))};
  auto next = FileDescriptor(dup(0)).get();
  const rlimit full{.rlim_cur = static_cast<rlim_t>(next), .rlim_max = limit.rlim_max};
  ChildTask task("/bin/sleep", {"1000"});
  setrlimit(RLIMIT_NOFILE, &full);
  auto launched = task.launch();
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_STREQ(launched.error().what(), "Too many open files");
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace platform
