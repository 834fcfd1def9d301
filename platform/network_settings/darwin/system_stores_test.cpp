// The network preferences and the power assertions of the machine that the tests run on; nothing of it is changed.
#include <SystemConfiguration/SystemConfiguration.h>
#include <gmock/gmock.h>

#include "platform/base/darwin/core_foundation.h"
#include "platform/network_settings/network_services.h"
#include "platform/network_settings/preferences.h"
#include "platform/system/power.h"

namespace platform {
namespace {

TEST(Preferences, KeysAreTheSystemsOwn) {
  EXPECT_EQ(textOf(kSCPrefNetworkServices), preferences::networkServices);
  EXPECT_EQ(textOf(kSCEntNetProxies), preferences::proxiesEntity);
  EXPECT_EQ(textOf(kSCEntNetIPv4), preferences::ipv4Entity);
}

// Nothing is committed.
TEST(Preferences, OnlyObjectsOfWhatPropertyListsKnowAreSet) {
  auto session = preferences::Session::create("platform_tests", "");
  ASSERT_TRUE(session) << preferences::lastErrorText();
  EXPECT_TRUE(session->setValue("/NetworkServices/none/Proxies", boost::json::object()));
  EXPECT_FALSE(session->setValue("/NetworkServices/none/Proxies", {{"HTTPEnable", nullptr}}));
  EXPECT_EQ(preferences::lastErrorText(), "Invalid argument");
  EXPECT_FALSE(session->setValue("/NetworkServices/none/Proxies", "text"));
  EXPECT_TRUE(session->setValue("/NetworkServices/none/Proxies", {{"HTTPEnable", 1}}));
}

TEST(NetworkServices, HaveIDsAndNames) {
  for (const auto& service : networkServices()) {
    EXPECT_THAT(service.id, testing::Not(testing::IsEmpty()));
  }
}

TEST(PowerAssertions, AreGivenBackOnce) {
  power::AssertionID assertion = 0;
  ASSERT_EQ(power::createAssertion("PreventUserIdleSystemSleep", "platform_tests", assertion), 0);
  EXPECT_EQ(power::releaseAssertion(assertion), 0);
  EXPECT_NE(power::releaseAssertion(assertion), 0);
}

}  // namespace
}  // namespace platform
