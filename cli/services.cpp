#include "cli/services.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json.hpp>
#include <vector>

#include "build_constants.h"
#include "platform/network_settings/network_services.h"
#include "platform/network_settings/proxy_report.h"

namespace brimo {

namespace json = boost::json;
using platform::NetworkService;

Answer listServices() {
  json::array list;
  std::string text;
  for (const auto& [id, name, interface, isPrimary] : platform::networkServices().value()) {
    list.push_back({{"id", id}, {"interface", interface}, {"name", name}, {"primary", isPrimary}});
    text += fmt::format("{}{}  {:15}  {}{}", text.empty() ? "" : "\n", id, interface.empty() ? "-" : interface, name,
                        isPrimary ? "  (primary)" : "");
  }
  if (list.empty()) return {.object = {{"services", list}}, .text = "no network services", .code = exitNotFound};
  return {.object = {{"services", list}}, .text = std::move(text)};
}

Answer listProxies() {
  json::array list;
  std::string text;
  for (const auto& [name, service, setting, readers] : platform::proxyPlaces(HelperServiceName)) {
    list.push_back({{"place", name}, {"setting", setting}, {"readers", readers}});
    text += fmt::format("{}{}: {}\n  used by {}", text.empty() ? "" : "\n", name, setting, readers);
  }
  return {.object = {{"places", list}}, .text = std::move(text)};
}

std::string findService(const std::string& text, bool isForced) {
  if (isForced) return text;
  auto known = platform::networkServices();
  if (!known && text == "primary") throw known.error();
  if (!known) return text;
  const auto& services = *known;
  if (text == "primary") {
    auto found = std::find_if(services.begin(), services.end(), [](const auto& service) { return service.isPrimary; });
    if (found == services.end()) throw CommandFailure(exitNotFound, "no service has the default route");
    return found->id;
  }
  for (auto member : {&NetworkService::id, &NetworkService::interface, &NetworkService::name}) {
    auto isCalled = [&](const NetworkService& service) { return !text.empty() && service.*member == text; };
    auto found = std::find_if(services.begin(), services.end(), isCalled);
    if (found == services.end()) continue;
    if (std::any_of(found + 1, services.end(), isCalled)) {
      throw UsageError(fmt::format("more than one service is called {}; \"services\" lists their IDs", text));
    }
    return found->id;
  }
  throw CommandFailure(
      exitNotFound,
      fmt::format("no service of this machine is called {}; \"services\" lists them. With --force, the settings are "
                  "stored under this text as an ID, but not applied",
                  text));
}

}  // namespace brimo
