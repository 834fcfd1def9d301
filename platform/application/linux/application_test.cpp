#include "platform/application/application.h"

#include <gtest/gtest.h>

#include "platform/dispatch/dispatch.h"
#include "tests/support/eventually.h"
#include "tests/support/linux/signed_files.h"

namespace platform {
namespace {

constexpr char unknown[] = "it is not known as whom it ran";

/// Launches a program that is not there, after `prepare`, and ends the process: with an error text on standard error,
/// as which everything that comes before the program is ruled out.
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
  // Not started anew for each: the application is this process's.
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "fast"); }

  test::TemporaryFolder folder;
  test::RunningCopy application{folder / "sleep"};
  Process process = Process::find(application.pid()).value();
};

TEST_F(WorkspaceDeathTest, NothingIsLaunchedForAnApplicationThatWasNotNoted) {
  auto end = testing::ExitedWithCode(0);
  EXPECT_EXIT(launchAfter([] {}), end, unknown);
  // Somebody else's by now.
  EXPECT_EXIT(launchAfter([&] { noteRunningApplication(process, getuid() + 1); }), end, unknown);
  // The noted one is replaced even by one that cannot be noted.
  EXPECT_EXIT(launchAfter([&] {
                noteRunningApplication(process, getuid());
                kill(application.pid(), SIGKILL);
                EXPECT_TRUE(eventually([&] { return process.hasEnded(); }));
                noteRunningApplication(process, getuid());
              }),
              end, unknown);
}

TEST_F(WorkspaceDeathTest, TheErrorNamesTheStepThatFailed) {
  // Only root may set groups; whoever else runs this test gets no further.
  auto error = getuid() == 0 ? "execve: No such file or directory" : "setgroups: Operation not permitted";
  EXPECT_EXIT(launchAfter([&] { noteRunningApplication(process, getuid()); }), testing::ExitedWithCode(0), error);
}

}  // namespace
}  // namespace platform
