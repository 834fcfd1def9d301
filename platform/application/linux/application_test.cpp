#include "platform/application/application.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "platform/application/linux/launch.h"
#include "platform/dispatch/dispatch.h"
#include "tests/support/eventually.h"
#include "tests/support/linux/signed_files.h"

namespace platform {
namespace {

constexpr char unknown[] = "the user it ran as is not known";

using Completion = std::function<void(const Result<void>&)>;

/// Launches a program that does not exist. If every step before executing it succeeds, that is what the error says.
void launch(const Completion& completion) {
  openApplication("com.example.test", "/nowhere/Brimo", {}, completion);
}

/// Prints the error and ends the process.
void finish(const Result<void>& launched) {
  fmt::print(stderr, "{}", launched ? "launched" : launched.error().what());
  std::exit(dispatch::isMainThread() ? 0 : 1);
}

void launchAfter(const std::function<void()>& prepare, const Completion& completion = finish) {
  dispatch::async(dispatch::mainQueue(), [=] {
    prepare();
    launch(completion);
  });
  dispatch::dispatchMain();
}

class ApplicationDeathTest : public testing::Test {
 protected:
  // Not "threadsafe", which repeats the test in a new process: the noted application must be a child of this one.
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "fast"); }

  test::TemporaryFolder folder;
  test::RunningCopy application{folder / "sleep"};
  Process process = Process::find(application.pid()).value();
};

TEST_F(ApplicationDeathTest, NothingIsLaunchedForAnApplicationThatWasNotNoted) {
  auto end = testing::ExitedWithCode(0);
  EXPECT_EXIT(launchAfter([] {}), end, unknown);
  // The process does not run as the user known to be behind it.
  EXPECT_EXIT(launchAfter([&] { noteRunningApplication(process, getuid() + 1); }), end, unknown);
  // An application that cannot be noted replaces the noted one too.
  EXPECT_EXIT(launchAfter([&] {
                noteRunningApplication(process, getuid());
                kill(application.pid(), SIGKILL);
                EXPECT_TRUE(eventually([&] { return process.hasEnded(); }));
                noteRunningApplication(process, getuid());
              }),
              end, unknown);
}

TEST_F(ApplicationDeathTest, NothingIsLaunchedOnceTheUserHasLoggedOut) {
  // Plays logind in a mount namespace of this process's own.
  auto become = [&](const std::string& before, const std::string& now) {
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0) std::exit(2);
    if (mount("", "/run", "tmpfs", 0, nullptr) != 0) std::exit(2);
    std::filesystem::create_directories("/run/systemd/users");
    const auto file = fmt::format("/run/systemd/users/{}", getuid());
    test::writeFile(file, "STATE=" + before + "\n");
    noteRunningApplication(process, getuid());
    test::writeFile(file, "STATE=" + now + "\n");
  };
  auto end = testing::ExitedWithCode(0);
  for (const char* state : {"opening", "online", "active"}) {
    EXPECT_EXIT(launchAfter([&] { become(state, "lingering"); }), end, "its user has logged out");
    EXPECT_EXIT(launchAfter([&] { become("active", state); }), end, "execve: No such file");
  }
}

TEST_F(ApplicationDeathTest, TheErrorNamesTheStepThatFailed) {
  // Only root may set groups, so for other users the launch fails at that step.
  auto error = getuid() == 0 ? "execve: No such file or directory" : "setgroups: Operation not permitted";
  auto end = testing::ExitedWithCode(0);
  const char* refused = "too many launches for this user are under way";
  const Completion ignore = [](auto&) {}, once = [](auto&) { launch(finish); };
  const Completion twice = [&](auto& launched) { launch(ignore), once(launched); };
  auto beside = [&](int launches, const Completion& completion) {
    return [=, this] {
      noteRunningApplication(process, getuid());
      for (int i = 0; i < launches; ++i) launch(completion);
    };
  };
  EXPECT_EXIT(launchAfter(beside(7, ignore), once), end, error);
  EXPECT_EXIT(launchAfter(beside(8, ignore)), end, refused);
  // When the first of eight has ended, there is room for one.
  EXPECT_EXIT(launchAfter(beside(7, twice), twice), end, refused);
}

#ifndef __SANITIZE_THREAD__  // its runtime does not support a forked child that continues to run

TEST(ApplicationLaunch, TheApplicationHasOnlyWhatBelongsToItsUser) {
  ASSERT_EQ(getuid(), 0u) << "run as root";
  test::TemporaryFolder folder;
  ASSERT_EQ(chown(folder.path().c_str(), 1, 1), 0);
  // The application must inherit none of these.
  FileDescriptor inheritable(open("/", O_RDONLY));
  sigset_t one, before;
  sigemptyset(&one);
  sigaddset(&one, SIGUSR1);
  sigprocmask(SIG_BLOCK, &one, &before);
  auto handler = signal(SIGUSR2, SIG_IGN);
  mode_t mask = umask(0);

  // Perl reports the signals, because a shell would unblock them first. Perl itself ignores one signal: SIGFPE (0x80).
  const std::string perl = R"(open STDOUT, '>', "$ARGV[1].new"; open STATUS, '/proc/self/status'; $| = 1;
      print alarm(0), "\n", grep(/Sig(Blk|Ign)/, <STATUS>); close STATUS; exec '/bin/sh', '-c', @ARGV)";
  const std::string pid = std::to_string(getpid()), report = folder / "report",
                    script = R"(id -u; id -g; id -G; umask; pwd
      ls /proc/$$/fd; readlink /proc/$$/fd/0 /proc/$$/fd/2
      [ $(cut -d' ' -f6 /proc/$$/stat) = $$ ] && [ $PPID != $1 ] && echo >&2 && echo orphan
      tr '\0' '\n' </proc/$$/environ; mv "$0.new" "$0")";
  for (const auto& [home, start] : {std::pair(folder.path(), folder.path()), {folder / "none", "/"}}) {
    std::filesystem::remove(report);
    auto launched =
        launchApplication("/usr/bin/perl", {"-e", perl, script, report, pid}, {1, 2, {3, 4}, {"HOME=" + home}});
    EXPECT_TRUE(launched) << launched.error().what();
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(report); }));
    EXPECT_EQ(test::readFile(report), "0\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000080\n1\n2\n2 3 4\n0022\n" +
                                          start + "\n0\n1\n2\n/dev/null\n/dev/null\norphan\nHOME=" + home +
                                          "\nUSER=daemon\nLOGNAME=daemon\nSHELL=/usr/sbin/nologin\n"
                                          "PATH=/usr/local/bin:/usr/bin:/bin\n");
  }
  umask(mask);
  signal(SIGUSR2, handler);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

#endif

}  // namespace
}  // namespace platform
