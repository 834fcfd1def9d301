// Real children: what they inherit, how their end is reported, and what remains of them.
#include "platform/process/child_task.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cerrno>

#include "platform/dispatch/linux/event_loop.h"
#include "tests/support/linux/signed_files.h"
#include "tests/support/this_machine.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

bool exists(std::int32_t pid) {
  return kill(pid, 0) == 0;
}

constexpr char describeItself[] = R"sh(
tr '\0' '\n' </proc/$$/environ
find /proc/$$/fd -type l -printf '%f %l\n'
pwd
read -r pid name state parent group session rest </proc/$$/stat
[ "$session" = "$$" ] && [ "$group" = "$$" ] && echo "a session of its own"
echo "$0 $1" >&2
)sh";

class ChildTaskTest : public testing::Test {
 protected:
  /// Serves the main loop until a condition holds.
  static bool serveUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      sd_event_run(mainEventLoop(), 100'000);
    }
    return true;
  }

  /// Serves the main loop until nothing is waiting.
  static void serveWhatWaits() {
    while (sd_event_run(mainEventLoop(), 0) > 0) {
    }
  }

  FileDescriptor openOutput() const {
    return FileDescriptor(open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  }

  /// The output of a shell script that runs as a child.
  std::string outputOf(const std::string& script) const {
    ChildTask task("/bin/sh", {"-c", script, "name", "two words"}, openOutput());
    EXPECT_TRUE(task.launch());
    task.waitUntilExit();
    serveWhatWaits();
    return test::readFile(output);
  }

  /// A child that stays alive, and on request ignores SIGTERM; returns once it does.
  static std::unique_ptr<ChildTask> start(bool ignoresTermination, std::function<void()> handler = {}) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    FileDescriptor reading(ends[0]), writing(ends[1]);
    auto script = fmt::format("{} echo ready; exec sleep 1000", ignoresTermination ? "trap '' TERM;" : "");
    auto task = std::make_unique<ChildTask>("/bin/sh", std::vector<std::string>{"-c", script}, std::move(writing));
    task->setTerminationHandler(std::move(handler));
    EXPECT_TRUE(task->launch());
    char byte;
    EXPECT_EQ(read(reading.get(), &byte, 1), 1);
    return task;
  }

  test::TemporaryFolder folder;
  std::string output = folder / "output";
};

TEST_F(ChildTaskTest, AChildIsGivenWhatIsMeantForItAndNothingElse) {
  // State of this process that a child could inherit.
  FileDescriptor inheritable(open("/etc/passwd", O_RDONLY));
  setenv("LD_LIBRARY_PATH", "/planted", 1);
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGTERM, SIG_IGN);

  EXPECT_EQ(outputOf(describeItself), fmt::format("PATH=/usr/sbin:/usr/bin:/sbin:/bin\n"
                                                  "0 /dev/null\n1 {0}\n2 {0}\n"
                                                  "/\n"
                                                  "a session of its own\n"
                                                  "name two words\n",
                                                  output));

  // Not a shell, which would change them. The C library ignores two signals itself.
  std::filesystem::remove(output);
  ChildTask grep("/bin/grep", {"-E", "^Sig(Blk|Ign)", "/proc/self/status"}, openOutput());
  EXPECT_TRUE(grep.launch());
  grep.waitUntilExit();
  EXPECT_THAT(test::readFile(output), testing::MatchesRegex("SigBlk:\t0{16}\nSigIgn:\t0{7}[01][08]0{7}\n"));

  signal(SIGPIPE, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  unsetenv("LD_LIBRARY_PATH");
}

TEST_F(ChildTaskTest, WithoutAnOutputAChildHasOurs) {
  FileDescriptor ours(dup(STDOUT_FILENO)), errors(dup(STDERR_FILENO)), file = openOutput();
  dup2(file.get(), STDOUT_FILENO);
  dup2(file.get(), STDERR_FILENO);
  ChildTask task("/bin/sh", {"-c", "echo out; echo error >&2"});
  auto launched = task.launch();
  task.waitUntilExit();
  dup2(ours.get(), STDOUT_FILENO);
  dup2(errors.get(), STDERR_FILENO);
  EXPECT_TRUE(launched);
  EXPECT_EQ(test::readFile(output), "out\nerror\n");
  serveWhatWaits();
}

TEST_F(ChildTaskTest, AnOutputMayHaveAnyNumber) {
  for (int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    FileDescriptor ours(fcntl(number, F_DUPFD_CLOEXEC, 3));
    dup3(openOutput().get(), number, O_CLOEXEC);
    Result<void> launched;
    {
      ChildTask task("/bin/sh", {"-c", "echo out; echo error >&2; cat"}, FileDescriptor(number));
      launched = task.launch();
      task.waitUntilExit();
      serveWhatWaits();
    }
    dup2(ours.get(), number);  // the pidfd may have had this number meanwhile
    EXPECT_TRUE(launched);
    EXPECT_EQ(test::readFile(output), "out\nerror\n") << number;
    std::filesystem::remove(output);
  }
}

TEST_F(ChildTaskTest, ItsEndIsToldOnceOnTheMainLoopAndNothingIsLeft) {
  serveWhatWaits();
  const auto descriptors = openDescriptors();
  std::int32_t pid = 0;
  {
    int told = 0;
    auto task = start(false, [&] { ++told; });
    pid = task->processIdentifier();
    EXPECT_TRUE(task->isRunning());
    EXPECT_FALSE(task->waitForExit(0ms));
    task->terminate();
    EXPECT_TRUE(task->waitForExit(10s));
    EXPECT_FALSE(task->isRunning());
    EXPECT_EQ(told, 0);  // only the loop reports it
    EXPECT_TRUE(serveUntil([&] { return told == 1; }));
    EXPECT_FALSE(exists(pid));
    serveWhatWaits();
    EXPECT_EQ(told, 1);
    task->terminate();
    task->kill();
    task->waitUntilExit();
    EXPECT_FALSE(task->isRunning());
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(ChildTaskTest, KillEndsWhatIgnoresTermination) {
  auto task = start(true);
  task->terminate();
  EXPECT_FALSE(task->waitForExit(100ms));
  task->kill();
  task->waitUntilExit();
  siginfo_t status{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(task->processIdentifier()), &status, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(status.si_status, SIGKILL);
  serveWhatWaits();
}

TEST_F(ChildTaskTest, HandlersMayBeReplacedAndMayLetTheirTaskGo) {
  std::vector<int> told;
  auto first = start(false, [&] { told.push_back(1); });
  auto second = start(false, [&] { told.push_back(2); });
  auto third = start(false, [&] { told.push_back(3); });
  first->setTerminationHandler({});
  second->setTerminationHandler([&] {
    second.reset();
    told.push_back(4);
  });
  auto pid = third->processIdentifier();
  first->kill();
  second->kill();
  third->kill();
  third.reset();
  EXPECT_TRUE(serveUntil([&] { return !exists(pid) && told.size() == 1; }));
  serveWhatWaits();
  EXPECT_THAT(told, ElementsAre(4));
  EXPECT_FALSE(second);
}

TEST_F(ChildTaskTest, AChildOutlivesItsObjectAndIsClearedAwayAllTheSame) {
  serveWhatWaits();
  const auto descriptors = openDescriptors();
  auto task = start(false);
  auto pid = task->processIdentifier();
  task.reset();
  serveWhatWaits();
  ASSERT_TRUE(exists(pid));
  kill(pid, SIGKILL);
  EXPECT_TRUE(serveUntil([&] { return !exists(pid); }));
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(ChildTaskTest, AFailedLaunchSaysWhy) {
  auto executable = folder / "executable", plain = folder / "plain";
  test::writeFile(executable, "neither a program nor a script");
  test::writeFile(plain, "");
  std::filesystem::permissions(executable, std::filesystem::perms::owner_all);
  serveWhatWaits();  // otherwise the first launch would make the loop, with its descriptors
  const auto descriptors = openDescriptors();
  const std::pair<std::string, std::string> launches[] = {{"/nowhere/at/all", "No such file or directory"},
                                                          {"", "No such file or directory"},
                                                          {"/etc", "Permission denied"},
                                                          {"/etc/passwd/x", "Not a directory"},
                                                          {executable, "Exec format error"},
                                                          {plain, "Permission denied"}};
  for (const auto& [path, reason] : launches) {
    ChildTask task(path, {"x"}, openOutput());
    task.setTerminationHandler([] { ADD_FAILURE() << "told of the end of a child that never was"; });
    EXPECT_EQ(task.launch().error().what(), reason) << path;
    EXPECT_FALSE(task.isRunning());
    EXPECT_EQ(task.processIdentifier(), 0);
    task.terminate();
    task.kill();
    task.waitUntilExit();
    serveWhatWaits();
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(ChildTaskTest, AChildThatCannotBeWatchedIsNotLeftRunning) {
  serveWhatWaits();
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  // The descriptors that a launch needs for itself.
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

TEST_F(ChildTaskTest, AShellCommandHasEndedWhenTheCallReturns) {
  runShellCommand(fmt::format("sleep 0.05; echo $PATH >{}; exit 1", output));
  EXPECT_EQ(test::readFile(output), "/usr/sbin:/usr/bin:/sbin:/bin\n");
  serveWhatWaits();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace
}  // namespace platform
