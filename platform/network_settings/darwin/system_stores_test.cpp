// Tests the real network preferences and power assertions of this machine, and leaves nothing changed.
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

// The test never commits.
TEST(Preferences, OnlyObjectsWithPropertyListTypesAreSet) {
  auto session = preferences::Session::create("platform_tests", "").value();
  EXPECT_TRUE(session->setValue("/NetworkServices/none/Proxies", boost::json::object()));
  EXPECT_STREQ(session->setValue("/NetworkServices/none/Proxies", {{"HTTPEnable", nullptr}}).error().what(),
               "Invalid argument");
  EXPECT_FALSE(session->setValue("/NetworkServices/none/Proxies", "text"));
  EXPECT_TRUE(session->setValue("/NetworkServices/none/Proxies", {{"HTTPEnable", 1}}));
}

TEST(NetworkServices, HaveIDsAndNames) {
  for (const auto& service : networkServices().value()) {
    EXPECT_THAT(service.id, testing::Not(testing::IsEmpty()));
  }
}

TEST(PowerAssertions, AreReleasedOnce) {
  auto assertion = power::createAssertion("PreventUserIdleSystemSleep", "platform_tests").value();
  EXPECT_TRUE(power::releaseAssertion(assertion));
  EXPECT_FALSE(power::releaseAssertion(assertion));
}

}  // namespace
}  // namespace platform
