// Keeping the machine awake, and the DNS cache.
#include "build_constants.h"
#include "helper/BRHMain.h"
#include "helper/reply.h"
#include "platform/dispatch/dispatch.h"
#include "platform/system/power.h"

namespace dispatch = platform::dispatch;
namespace power = platform::power;

namespace {

constexpr std::chrono::seconds holdingTime(30);

}  // namespace

boost::json::object BRHMain::preventSleepTemporarily(const boost::json::object&, const platform::ipc::Connection&) {
  HX_log("Prevent system sleeping");
  holdAssertion("PreventUserIdleSystemSleep", ".idle", "IOPMAssertion");
  holdAssertion("NetworkClientActive", ".network", "network IOPMAssertion");
  return BRHSuccess();
}

void BRHMain::holdAssertion(const char* type, const char* nameSuffix, const char* whatFailed) {
  power::AssertionID assertion;
  if (auto status = power::createAssertion(type, std::string(HelperServiceName) + nameSuffix, assertion); status != 0) {
    HX_log("Failed to prevent system sleeping: {}", status);
    return;
  }
  dispatch::after(holdingTime, dispatch::mainQueue(), [assertion, whatFailed] {
    if (auto status = power::releaseAssertion(assertion); status != 0) {
      HX_log("Failed to release {}: {}", whatFailed, status);
    } else {
      HX_log("Release IOPMAssertion");
    }
  });
}

void BRHMain::flushSystemDNS() {
  HX_log("Flush system DNS");
  platform::runShellCommand("killall -HUP mDNSResponder");
}
