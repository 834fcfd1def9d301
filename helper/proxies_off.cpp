// Run by the service manager when the helper has ended (ExecStopPost= in systemd.service(5)): takes the proxies off
// that programs of a desktop were told, unless the helper ended as it was told to, which leaves everything as it is. By
// hand, as root, it takes them off as well.
#include <cstdlib>
#include <string_view>

#include "build_constants.h"
#include "platform/network_settings/preferences.h"

int main() {
  auto is = [](const char* variable, std::string_view text) {
    const char* value = std::getenv(variable);
    return value && value == text;
  };
  if (is("EXIT_CODE", "exited") && is("EXIT_STATUS", "0")) return EXIT_SUCCESS;
  return platform::preferences::withdraw(HelperServiceName) ? EXIT_SUCCESS : EXIT_FAILURE;
}
