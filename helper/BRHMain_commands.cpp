// The JSON commands.
#include <boost/json.hpp>
#include <cstdlib>

#include "build_constants.h"
#include "helper/BRHMain.h"

namespace json = boost::json;

namespace {

const json::object success{{"result", "success"}};

}  // namespace

json::object BRHMain::execCommand(const json::object& request, const platform::ipc::Connection& client) {
  const auto* value = request.if_contains("command");
  const auto* text = value ? value->if_string() : nullptr;
  std::string_view command = text ? std::string_view(*text) : std::string_view();

  if (command == "version") return {{"version", BRHBuildNumber}};
  if (command == "set-proxy") {
    if (!applyProxySettings(request)) return {{"error", "failed to apply proxy settings"}};
    return success;
  }
  if (command == "stop") {
    HX_log("Shutdown");
    std::exit(EXIT_SUCCESS);
  }
  if (command == "spindump") return startSpindump(request, client);
  if (command == "start-dhcpd") return startDHCP(request, client);
  if (command == "stop-dhcpd") {
    stopAllDHCP();
    return success;
  }
  if (command == "set-static-ip") return setStaticIP(request);
  if (command == "start-watchdog") {
    _watchdogStarted = true;
    return success;
  }
  if (command == "stop-watchdog") {
    _watchdogStarted = false;
    return success;
  }
  if (command == "defunct-restart") {
    defunctRestart(client);
    return success;
  }
  if (command == "prevent-sleep-temp") {
    preventSleepTemporarily();
    return success;
  }
  HX_log("Unknown command!");
  return {{"error", "unknown command"}};
}
