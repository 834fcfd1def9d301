#include "platform/application/application.h"

#include <gtest/gtest.h>

#include "platform/dispatch/dispatch.h"
#include "tests/support/eventually.h"
#include "tests/support/linux/signed_files.h"

namespace platform {
namespace {

constexpr char unknown[] = "the user it ran as is not known";

/// Runs `prepare`, launches a program that does not exist, and ends the process. The error text on standard error shows
/// that every step before executing the program succeeded.
void launchAfter(const std::function<void()>& prepare) {
  dispatch::async(dispatch::mainQueue(), [prepare] {
    prepare();
    openApplication("com.example.test", "/nowhere/Brimo", {}, [](const Result<void>& launched) {
      fmt::print(stderr, "{}", launched ? "launched" : launched.error().what());
      std::exit(dispatch::isMainThread() ? 0 : 1);
    });
  });
  dispatch::dispatchMain();
}

class WorkspaceDeathTest : public testing::Test {
 protected:
  // Not "threadsafe", which repeats the test in a new process: the noted application must be a child of this one.
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "fast"); }

  test::TemporaryFolder folder;
  test::RunningCopy application{folder / "sleep"};
  Process process = Process::find(application.pid()).value();
};

TEST_F(WorkspaceDeathTest, NothingIsLaunchedForAnApplicationThatWasNotNoted) {
  auto end = testing::ExitedWithCode(0);
  EXPECT_EXIT(launchAfter([] {}), end, unknown);
  // It runs as another user by now.
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

TEST_F(WorkspaceDeathTest, TheErrorNamesTheStepThatFailed) {
  // Only root may set groups, so the launch fails at that step.
  auto error = getuid() == 0 ? "execve: No such file or directory" : "setgroups: Operation not permitted";
  EXPECT_EXIT(launchAfter([&] { noteRunningApplication(process, getuid()); }), testing::ExitedWithCode(0), error);
}

}  // namespace
}  // namespace platform
