// The helper's entry point.
#include <cstdlib>

#include "build_constants.h"
#include "foundation/HXLog.h"
#include "helper/admission.h"
#include "helper/log_file.h"
#include "platform/dispatch/dispatch.h"
#include "platform/ipc/service.h"

namespace {

// Nothing reads it at run time.
[[gnu::used]] const char* const info = BRHHelperInfo;

}  // namespace

int main() {
  BRHOpenLogFile(BRHLogFilePath);
  HXInstallUncaughtExceptionHandler();
  HXLog("Helper", "Version: {}, Starting...", BRHBuildNumber);
  auto listener = platform::ipc::Listener::create(
      {.name = HelperServiceName, .build = BRHBuildNumber, .clientGroup = BRHClientGroup});
  if (!listener) {
    HXLog("Helper", "Failed to create service.");
    std::exit(EXIT_FAILURE);
  }
  listener->setEventHandler(BRHListenerEventHandler);
  listener->resume();
  platform::dispatch::dispatchMain();
}
