// Tests this process and real children of it.
#include "platform/process/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "platform/dispatch/dispatch.h"
#include "platform/process/child_task.h"

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

TEST(Processes, AreFoundOnlyIfTheyExist) {
  EXPECT_THAT(executablePath(getpid()).value_or(""), testing::EndsWith("/process_tests"));
  EXPECT_EQ(effectiveUserID(getpid()), geteuid());
  EXPECT_EQ(Process::find(getpid())->pid(), getpid());
  EXPECT_TRUE(Process::find(1));  // process 1, which only root may signal
  for (std::int32_t none : {-1, 0, 99'999'999}) {
    EXPECT_FALSE(Process::find(none)) << none;
    Process(none, {}).kill();  // must not kill this process's group
  }
  for (std::int32_t none : {-1, 99'999'999}) {
    EXPECT_EQ(executablePath(none), std::nullopt);
    EXPECT_EQ(effectiveUserID(none), std::nullopt);
  }
}

TEST(ChildTask, InheritsOnlyWhatIsMeantForIt) {
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

TEST(ChildTask, WithoutAnOutputWritesToOurs) {
  Pipe pipe;
  FileDescriptor ours(dup(STDOUT_FILENO)), errors(dup(STDERR_FILENO));
  for (int output : {STDOUT_FILENO, STDERR_FILENO}) dup2(pipe.writing.get(), output);
  runShellCommand("sleep 0.05; echo out; echo error >&2; exit 1");  // the command has ended when the call returns
  dup2(ours.get(), STDOUT_FILENO);
  dup2(errors.get(), STDERR_FILENO);
  pipe.writing.reset();
  fcntl(pipe.reading.get(), F_SETFL, O_NONBLOCK);
  EXPECT_EQ(pipe.readAll(), "out\nerror\n");
}

TEST(ChildTask, ItsEndIsDetectedWithoutAMainQueue) {
  Pipe pipe;
  ChildTask task("/bin/sh", {"-c", "trap 'echo' TERM; echo; while sleep 0.01; do :; done"}, std::move(pipe.writing));
  EXPECT_FALSE(task.isRunning());
  EXPECT_TRUE(task.launch());
  char byte;
  ASSERT_EQ(read(pipe.reading.get(), &byte, 1), 1);
  task.terminate();
  ASSERT_EQ(read(pipe.reading.get(), &byte, 1), 1);  // the child has received the signal
  EXPECT_FALSE(task.waitForExit(100ms));
  EXPECT_TRUE(task.isRunning());
  task.kill();
  task.waitUntilExit();
  EXPECT_FALSE(task.isRunning());
  task.terminate();
  task.kill();
}

TEST(ChildTaskDeathTest, OnlyItsLastHandlerRunsOnceOnTheMainQueue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto serve = [] {
    static std::unique_ptr<ChildTask> replaced, dropped, kept;
    static std::vector<pid_t> pids;
    static std::vector<std::string> told;
    for (auto* task : {&replaced, &dropped, &kept}) {
      *task = std::make_unique<ChildTask>("/bin/sleep", std::vector<std::string>{"1000"});
      (*task)->setTerminationHandler([] { told.emplace_back("an old handler"); });
      if (!(*task)->launch()) std::exit(2);
      pids.push_back((*task)->processIdentifier());
    }
    replaced->setTerminationHandler([] {
      replaced.reset();
      told.emplace_back("replaced");
      kept->kill();
    });
    static std::function<void()> endWhenAllAreCleared = [] {
      auto isThere = [](pid_t pid) { return ::kill(pid, 0) == 0; };
      if (std::none_of(pids.begin(), pids.end(), isThere)) {
        std::exit(told == std::vector<std::string>{"replaced", "kept"} ? 42 : 1);
      }
      dispatch::after(1ms, dispatch::mainQueue(), endWhenAllAreCleared);
    };
    kept->setTerminationHandler([] {
      told.emplace_back(kept->isRunning() ? "running" : "kept");
      endWhenAllAreCleared();
    });
    dropped.reset();
    if (::kill(pids[1], SIGKILL) != 0) std::exit(3);  // the child has outlived its object
    replaced->kill();
    dispatch::dispatchMain();
  };
  EXPECT_EXIT(serve(), testing::ExitedWithCode(42), "");
}

TEST(ChildTask, AFailedLaunchSaysWhy) {
  for (const auto& [path, reason] : {std::pair("/nowhere/at/all", "No such file or directory"),
                                     {"", "No such file or directory"},
                                     {"/etc", "Permission denied"},
                                     {"/etc/passwd/x", "Not a directory"}}) {
    ChildTask task(path, {});
    task.setTerminationHandler([] { ADD_FAILURE() << "the handler of a child that was never launched"; });
    EXPECT_STREQ(task.launch().error().what(), reason);
    EXPECT_EQ(task.processIdentifier(), 0);
    EXPECT_FALSE(task.isRunning());
    task.kill();
    task.waitUntilExit();
  }
}

}  // namespace
}  // namespace platform
