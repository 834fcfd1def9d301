// Removes the desktop proxies after the helper has ended. systemd runs it (ExecStopPost= in systemd.service(5)). When
// the helper exited with status 0, after "stop", the proxies stay. Root can also run it by hand.
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
