#include "platform/network_settings/proxy_report.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <boost/json.hpp>

#include "platform/network_settings/darwin/property_list.h"

namespace platform {

std::vector<ProxyPlace> proxyPlaces(const std::string&) {
  CFOwner<CFPropertyListRef> state(SCDynamicStoreCopyValue(nullptr, CFSTR("State:/Network/Global/Proxies")));
  auto value = state ? jsonValue(state.get()) : std::nullopt;
  return {{.name = "macOS",
           .service = {},
           .setting = value ? boost::json::serialize(*value) : "none",
           .readers = "programs that use the system's proxies"}};
}

std::set<std::string> servicesWithProxies(const std::string&) {
  return {};
}

}  // namespace platform
