// The JSON commands.
#include <boost/json.hpp>
#include <cstdlib>
#include <map>

#include "build_constants.h"
#include "helper/BRHMain.h"
#include "helper/reply.h"
#include "platform/base/json_text.h"

namespace json = boost::json;
namespace ipc = platform::ipc;

json::object BRHMain::execCommand(const json::object& request, const ipc::Connection& client) {
  static const std::map<std::string_view, Command BRHMain::*> commands{
      {"version", &BRHMain::version},
      {"set-proxy", &BRHMain::setProxy},
      {"stop", &BRHMain::stop},
      {"spindump", &BRHMain::startSpindump},
      {"start-dhcpd", &BRHMain::startDHCP},
      {"stop-dhcpd", &BRHMain::stopAllDHCP},
      {"set-static-ip", &BRHMain::setStaticIP},
      {"start-watchdog", &BRHMain::startWatchdog},
      {"stop-watchdog", &BRHMain::stopWatchdog},
      {"defunct-restart", &BRHMain::defunctRestart},
      {"prevent-sleep-temp", &BRHMain::preventSleepTemporarily},
  };
  auto command = commands.find(platform::textMember(request, "command"));
  if (command != commands.end()) return (this->*command->second)(request, client);
  HX_log("Unknown command!");
  return BRHError("unknown command");
}

json::object BRHMain::version(const json::object&, const ipc::Connection&) {
  return {{"version", BRHBuildNumber}};
}

json::object BRHMain::stop(const json::object&, const ipc::Connection&) {
  HX_log("Shutdown");
  std::exit(EXIT_SUCCESS);
}

json::object BRHMain::startWatchdog(const json::object&, const ipc::Connection&) {
  _watchdogStarted = true;
  return BRHSuccess();
}

json::object BRHMain::stopWatchdog(const json::object&, const ipc::Connection&) {
  _watchdogStarted = false;
  return BRHSuccess();
}
