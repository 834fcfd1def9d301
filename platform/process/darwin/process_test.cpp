// Real processes: this one and its children.
#include "platform/process/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/process/child_task.h"
#include "tests/support/eventually.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

/// A pipe whose ends are closed on exec.
struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    reading.reset(ends[0]);
    writing.reset(ends[1]);
    for (int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  }

  /// Reads until all writers have closed the pipe.
  std::string readAll() const {
    std::string text;
    char byte;
    while (read(reading.get(), &byte, 1) == 1) text.push_back(byte);
    return text;
  }

  FileDescriptor reading, writing;
};

std::string outputOf(const std::string& path, const std::vector<std::string>& arguments) {
  Pipe pipe;
  ChildTask task(path, arguments, std::move(pipe.writing));
  EXPECT_TRUE(task.launch());
  auto text = pipe.readAll();
  task.waitUntilExit();
  return text;
}

TEST(Processes, FactsAboutThisOneAndNone) {
  EXPECT_THAT(executablePath(getpid()).value_or(""), testing::EndsWith("/platform_tests"));
  EXPECT_EQ(effectiveUserID(getpid()), geteuid());
  EXPECT_EQ(Process::find(getpid())->pid(), getpid());
  EXPECT_TRUE(Process::find(1));  // process 1, which only root may signal
  for (std::int32_t none : {-1, 0, 99'999'999}) {
    EXPECT_FALSE(Process::find(none)) << none;
    EXPECT_EQ(executablePath(none == 0 ? -1 : none), std::nullopt);
    EXPECT_EQ(effectiveUserID(none == 0 ? -1 : none), std::nullopt);
    Process(none, {}).kill();  // must not kill this process's group
  }
}

TEST(ChildTask, IsGivenWhatIsMeantForItAndNothingElse) {
  FileDescriptor inheritable(open("/etc/passwd", O_RDONLY));
  setenv("PLANTED", "1", 1);
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  signal(SIGTERM, SIG_IGN);
  auto environment = outputOf("/usr/bin/env", {});
  auto rest = outputOf("/bin/sh", {"-c",
                                   "pwd; echo $0 $1 >&2; cat; for i in 3 4 5 6 7 8 9; do "
                                   "if { true >&$i; } 2>&-; then echo open $i; fi; done; "
                                   "[ $(ps -o pgid= -p $$) = $$ ] && echo group; kill -TERM $$; echo not ended",
                                   "name", "two words"});
  signal(SIGTERM, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  unsetenv("PLANTED");
  EXPECT_EQ(environment, "PATH=/usr/sbin:/usr/bin:/sbin:/bin\n");
  EXPECT_EQ(rest, "/\nname two words\ngroup\n");
}

TEST(ChildTask, ItsEndIsSeenWithoutAMainQueue) {
  Pipe pipe;
  ChildTask task("/bin/sh", {"-c", "trap '' TERM; echo ready; exec sleep 1000"}, std::move(pipe.writing));
  EXPECT_FALSE(task.isRunning());
  EXPECT_TRUE(task.launch());
  char byte;
  ASSERT_EQ(read(pipe.reading.get(), &byte, 1), 1);
  const auto pid = task.processIdentifier();
  EXPECT_TRUE(eventually([&] { return executablePath(pid) == "/bin/sleep"; }));
  task.terminate();
  EXPECT_FALSE(task.waitForExit(100ms));
  EXPECT_TRUE(task.isRunning());
  task.kill();
  task.waitUntilExit();
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(kill(pid, 0), -1);  // nothing is left
  task.terminate();
  task.kill();
}

TEST(ChildTaskDeathTest, ItsEndIsToldOnceOnTheMainQueueUnlessNobodyListens) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto serve = [] {
    auto sleeper = [] { return std::make_shared<ChildTask>("/bin/sleep", std::vector<std::string>{"1000"}); };
    auto told = std::make_shared<std::vector<int>>();
    auto replaced = sleeper(), dropped = sleeper(), kept = sleeper();
    replaced->setTerminationHandler([told] { told->push_back(1); });
    dropped->setTerminationHandler([told] { told->push_back(2); });
    kept->setTerminationHandler([told, kept] {
      told->push_back(kept->isRunning() ? 3 : 4);
      std::exit(*told == std::vector{5, 4} ? 42 : 1);
    });
    for (const auto& task : {replaced, dropped, kept}) {
      if (!task->launch()) std::exit(2);
    }
    replaced->setTerminationHandler([told, kept] {
      told->push_back(5);
      kept->kill();
    });
    const auto pid = dropped->processIdentifier();
    dropped.reset();
    ::kill(pid, SIGKILL);
    eventually([&] { return ::kill(pid, 0) != 0; });
    replaced->kill();
    dispatch::dispatchMain();
  };
  EXPECT_EXIT(serve(), testing::ExitedWithCode(42), "");
}

TEST(ChildTask, OutlivesItsObjectAndIsClearedAway) {
  Pipe pipe;
  auto task = std::make_unique<ChildTask>("/bin/sleep", std::vector<std::string>{"1000"}, std::move(pipe.writing));
  ASSERT_TRUE(task->launch());
  const auto pid = task->processIdentifier();
  task.reset();
  ASSERT_EQ(kill(pid, SIGKILL), 0);
  EXPECT_EQ(pipe.readAll(), "");
  EXPECT_TRUE(eventually([&] { return kill(pid, 0) != 0; }));
}

TEST(ChildTask, AFailedLaunchSaysWhy) {
  for (const auto& [path, reason] :
       {std::pair("/nowhere/at/all", "No such file or directory"), std::pair("/etc", "Permission denied")}) {
    ChildTask task(path, {});
    EXPECT_STREQ(task.launch().error().what(), reason);
    EXPECT_EQ(task.processIdentifier(), 0);
    EXPECT_FALSE(task.isRunning());
    task.kill();
    task.waitUntilExit();
  }
}

TEST(ShellCommand, HasEndedWhenTheCallReturns) {
  const std::string path = testing::TempDir() + "/brimo-shell-command-" + std::to_string(getpid());
  runShellCommand("sleep 0.05; echo done >" + path + "; exit 1");
  EXPECT_EQ(outputOf("/bin/cat", {path}), "done\n");
  unlink(path.c_str());
}

}  // namespace
}  // namespace platform
