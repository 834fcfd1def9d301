#include "build_constants.h"
#include "helper/command_fixture.h"

namespace {

using namespace std::chrono_literals;
using platform::fake::machine;
using platform::fake::passTime;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const std::string idle = "PreventUserIdleSystemSleep", network = "NetworkClientActive";
const std::string idleName = std::string(HelperServiceName) + ".idle";
const std::string networkName = std::string(HelperServiceName) + ".network";

class PowerTest : public CommandTest {
 protected:
  void preventSleep() { EXPECT_EQ(run("prevent-sleep-temp"), R"({"result":"success"})"); }
};

TEST_F(PowerTest, TwoAssertionsAreHeldForThirtySeconds) {
  preventSleep();
  EXPECT_THAT(log(), ElementsAre("Prevent system sleeping"));
  EXPECT_THAT(machine().assertions,
              ElementsAre(Pair(testing::_, Pair(idle, idleName)), Pair(testing::_, Pair(network, networkName))));
  passTime(30s - 1ns);
  EXPECT_EQ(machine().assertions.size(), 2u);
  EXPECT_THAT(log(), IsEmpty());
  passTime(1ns);
  EXPECT_THAT(machine().assertions, IsEmpty());
  EXPECT_THAT(log(), ElementsAre("Release IOPMAssertion", "Release IOPMAssertion"));
}

TEST_F(PowerTest, OneAssertionMayFailWithoutTheOther) {
  for (const auto& [fails, held] : {std::pair(idle, network), std::pair(network, idle)}) {
    machine().assertionStatus = {{fails, -536870206}};
    preventSleep();
    EXPECT_THAT(log(), ElementsAre("Prevent system sleeping", "Failed to prevent system sleeping: -536870206"));
    EXPECT_THAT(machine().assertions, ElementsAre(Pair(testing::_, Pair(held, testing::_))));
    passTime(30s);
    EXPECT_THAT(log(), ElementsAre("Release IOPMAssertion"));
    EXPECT_THAT(machine().assertions, IsEmpty());
  }
}

TEST_F(PowerTest, AFailedReleaseIsLoggedForItsAssertion) {
  machine().releaseStatus = 5;
  preventSleep();
  passTime(30s);
  EXPECT_THAT(log(), ElementsAre("Prevent system sleeping", "Failed to release IOPMAssertion: 5",
                                 "Failed to release network IOPMAssertion: 5"));
}

TEST_F(PowerTest, TheDNSCacheIsDropped) {
  helper.flushSystemDNS();
  EXPECT_THAT(log(), ElementsAre("Flush system DNS"));
  EXPECT_THAT(machine().steps, ElementsAre("sh killall -HUP mDNSResponder"));
}

}  // namespace
