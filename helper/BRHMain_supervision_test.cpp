#include "helper/command_fixture.h"

namespace {

using namespace std::chrono_literals;
using platform::fake::machine;
using platform::fake::passTime;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
namespace code_signing = platform::code_signing;

const std::string bundle = "/Applications/Brimo.app/Contents/";
const std::string executable = bundle + "MacOS/Brimo";
const std::string bugsnag = bundle + "Frameworks/Bugsnag.framework/Bugsnag";
const std::string success = R"({"result":"success"})";

class SupervisionTest : public CommandTest {
 protected:
  SupervisionTest() {
    machine().continuousSeconds = 1000;
    for (const auto& path : {executable, bugsnag, bundle + "Frameworks/Sparkle.framework/Sparkle"}) {
      machine().files[path] = code_signing::success;
    }
    helper.setMainAppImagePath(executable);
  }

  /// Loses the client at a time of the continuous clock. Returns whether the application is then launched.
  bool relaunchesAt(double seconds) {
    machine().continuousSeconds = seconds;
    EXPECT_EQ(run("start-watchdog"), success);
    loseClient();
    passTime(1s);
    return !std::exchange(machine().launches, {}).empty();
  }
};

TEST_F(SupervisionTest, TheWatchdogRelaunchesOnceOneSecondLater) {
  EXPECT_EQ(run("start-watchdog"), success);
  EXPECT_EQ(run("stop-watchdog"), success);
  loseClient();
  EXPECT_THAT(log(), ElementsAre("XPC connection closed"));
  run("start-watchdog");
  loseClient();
  EXPECT_THAT(log(), ElementsAre("XPC connection closed", "Main process died unexpectedly", "Relaunching"));
  passTime(1s - 1ns);
  EXPECT_THAT(machine().launches, IsEmpty());
  passTime(1ns);
  EXPECT_THAT(machine().launches, ElementsAre(Pair(executable, ElementsAre("-crashWatchDog"))));
  EXPECT_THAT(log(), IsEmpty());

  machine().continuousSeconds = 2000;
  loseClient();
  passTime(1h);
  EXPECT_THAT(log(), ElementsAre("XPC connection closed"));
  EXPECT_EQ(machine().launches.size(), 1u);
}

TEST_F(SupervisionTest, MoreThanThirtySecondsLieBetweenTwoRelaunches) {
  EXPECT_TRUE(relaunchesAt(1000));
  log();
  EXPECT_FALSE(relaunchesAt(1010));
  EXPECT_THAT(log(), ElementsAre("XPC connection closed", "Main process died unexpectedly"));
  // The refused relaunch has also stopped the watchdog.
  machine().continuousSeconds = 5000;
  loseClient();
  EXPECT_THAT(log(), ElementsAre("XPC connection closed"));
  EXPECT_TRUE(relaunchesAt(6000));
  EXPECT_FALSE(relaunchesAt(6030));
  EXPECT_TRUE(relaunchesAt(6030.001));
}

TEST_F(SupervisionTest, TheLimitBeginsWithTheRelaunchItself) {
  machine().secondsPerReading = 5;
  EXPECT_TRUE(relaunchesAt(1000));
  EXPECT_FALSE(relaunchesAt(1035));  // exactly 30 seconds after the relaunch at 1005
  EXPECT_TRUE(relaunchesAt(1036));
}

TEST_F(SupervisionTest, WithoutAnApplicationTheWatchdogStaysArmed) {
  BRHMain fresh;
  std::swap(helper, fresh);
  run("start-watchdog");
  loseClient();
  EXPECT_THAT(log(), ElementsAre("XPC connection closed"));
  helper.setMainAppImagePath(executable);
  loseClient();
  EXPECT_THAT(log(), ElementsAre("XPC connection closed", "Main process died unexpectedly", "Relaunching"));
}

TEST_F(SupervisionTest, DefunctRestartKillsAndRelaunchesWithoutALimit) {
  for (int count = 1; count <= 2; ++count) {
    run("start-watchdog");
    EXPECT_EQ(run("defunct-restart"), success);
    EXPECT_THAT(std::exchange(machine().killed, {}), ElementsAre(42));
    loseClient();
    passTime(1s - 1ns);
    EXPECT_THAT(machine().launches, IsEmpty());
    passTime(1h);
    EXPECT_THAT(std::exchange(machine().launches, {}),
                ElementsAre(Pair(executable, ElementsAre("-crashDefunctRestart"))));
    EXPECT_THAT(log(), ElementsAre("XPC connection closed"));
  }
  EXPECT_TRUE(relaunchesAt(1000));  // only relaunches by the watchdog count for its limit
}

TEST_F(SupervisionTest, AnApplicationThatIsInvalidByThenIsNotLaunched) {
  for (const auto& path : {executable, bugsnag}) {
    run("defunct-restart");
    auto status = std::exchange(machine().files[path], code_signing::signatureFailed);
    passTime(1s);
    EXPECT_THAT(log(), ElementsAre("Refuse to launch invalid main application at " + executable));
    EXPECT_THAT(machine().launches, IsEmpty());
    machine().files[path] = status;
  }
}

TEST_F(SupervisionTest, AFailedLaunchIsLogged) {
  machine().launchError = platform::Failure(0, "execve");
  run("defunct-restart");
  passTime(1s);
  EXPECT_THAT(log(), ElementsAre("Failed to launch main application: execve"));
}

}  // namespace
