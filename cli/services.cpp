#include "cli/services.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json.hpp>
#include <vector>

#include "platform/network_settings/network_services.h"

namespace brimo {

namespace json = boost::json;
using platform::NetworkService;

Answer listServices() {
  json::array list;
  std::string text;
  for (const auto& [id, name, interface] : platform::networkServices().value()) {
    list.push_back({{"id", id}, {"interface", interface}, {"name", name}});
    text += fmt::format("{}{}  {:15}  {}", text.empty() ? "" : "\n", id, interface.empty() ? "-" : interface, name);
  }
  if (list.empty()) return {.object = {{"services", list}}, .text = "no network services", .code = exitNotFound};
  return {.object = {{"services", list}}, .text = std::move(text)};
}

std::string findService(const std::string& text, bool isForced) {
  if (isForced) return text;
  auto known = platform::networkServices();
  if (!known) return text;
  const auto& services = *known;
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
      fmt::format("no service of this machine is called {}; \"services\" lists them, and --force takes it for an ID "
                  "whose settings are only stored",
                  text));
}

}  // namespace brimo
