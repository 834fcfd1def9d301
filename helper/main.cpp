// The helper's entry point.
#include <fmt/format.h>

#include <cstdlib>

#include "build_constants.h"
#include "foundation/HXLog.h"
#include "helper/admission.h"
#include "helper/log_file.h"
#include "platform/dispatch/dispatch.h"
#include "platform/ipc/service.h"
#include "platform/network_settings/preferences.h"
#include "platform/system/system_log.h"

namespace {

// brimo-helper-info and "Brimo doctor" read this from the executable's bytes. The helper itself does not use it.
[[gnu::used]] const char* const info = BRHHelperInfo;

}  // namespace

int main() {
  BRHOpenLogFile(BRHLogFilePath);
  HXInstallUncaughtExceptionHandler();
  HXLog("Helper", "Version: {}, Starting...", BRHBuildNumber);
  auto created = platform::ipc::Listener::create(
      {.name = HelperServiceName, .build = BRHBuildNumber, .clientGroup = BRHClientGroup});
  if (!created) {
    HXLog("Helper", "Failed to create service.");
    platform::systemLog(fmt::format("Failed to create service: {}", created.error().what()));
    std::exit(EXIT_FAILURE);
  }
  platform::preferences::keepApplied(HelperServiceName);
  auto listener = std::move(*created);
  listener->setEventHandler(BRHListenerEventHandler);
  listener->resume();
  platform::dispatch::dispatchMain();
}
