// Keeps the machine awake and flushes the DNS cache.
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
  auto assertion = power::createAssertion(type, std::string(HelperServiceName) + nameSuffix);
  if (!assertion) {
    HX_log("Failed to prevent system sleeping: {}", assertion.error().number);
    return;
  }
  dispatch::after(holdingTime, dispatch::mainQueue(), [assertion = *assertion, whatFailed] {
    if (auto released = power::releaseAssertion(assertion); !released) {
      ::HX_log<BRHMain>("Failed to release {}: {}", whatFailed, released.error().number);
    } else {
      ::HX_log<BRHMain>("Release IOPMAssertion");
    }
  });
}

void BRHMain::flushSystemDNS() {
  HX_log("Flush system DNS");
  platform::runShellCommand("killall -HUP mDNSResponder");
}
