// Relaunches the main application.
#include "build_constants.h"
#include "helper/BRHMain.h"
#include "helper/admission.h"
#include "helper/reply.h"
#include "platform/application/application.h"
#include "platform/dispatch/dispatch.h"
#include "platform/system/clock.h"

namespace dispatch = platform::dispatch;

namespace {

constexpr std::chrono::seconds relaunchDelay(1);
constexpr double relaunchInterval = 30;  // seconds; two relaunches by the watchdog lie further apart than this

}  // namespace

boost::json::object BRHMain::defunctRestart(const boost::json::object&, const platform::ipc::Connection& client) {
  // Otherwise the kill below would also trigger the watchdog and launch the application twice.
  _watchdogStarted = false;
  client.peer().kill();
  dispatch::after(relaunchDelay, dispatch::mainQueue(),
                  [this] { launchMainApplicationWithArguments({"-crashDefunctRestart"}); });
  return BRHSuccess();
}

void BRHMain::relaunchAfterLostClient() {
  if (!_watchdogStarted || !_mainAppImagePath) return;
  HX_log("Main process died unexpectedly");
  _watchdogStarted = false;
  if (platform::continuousSeconds() - _watchdogLastTime <= relaunchInterval) return;
  HX_log("Relaunching");
  _watchdogLastTime = platform::continuousSeconds();
  dispatch::after(relaunchDelay, dispatch::mainQueue(),
                  [this] { launchMainApplicationWithArguments({"-crashWatchDog"}); });
}

void BRHMain::launchMainApplicationWithArguments(const std::vector<std::string>& arguments) {
  auto path = mainAppImagePath().value_or("");
  if (!BRHValidateMainApplication(path)) {
    HX_log("Refuse to launch invalid main application at {}", path);
    return;
  }
  platform::openApplication(ClientBundleIdentifier, path, arguments, [](const platform::Result<void>& launched) {
    if (!launched) ::HX_log<BRHMain>("Failed to launch main application: {}", launched.error().what());
  });
}
