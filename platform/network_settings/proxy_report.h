// A report, for people, of the proxies that are set on this machine.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace platform {

/// A place where programs look up their proxies.
struct ProxyPlace {
  std::string name;
  std::string service;  ///< the service's ID, if the place belongs to one
  std::string setting;  ///< "none" if nothing is set
  std::string readers;  ///< the programs that use it
};

/// All places that "set-proxy" changes, including those without a setting. `service` is the name of the helper's
/// service. If a place cannot be read, its setting says why. Needs no privilege.
std::vector<ProxyPlace> proxyPlaces(const std::string& service);

/// The network services that clients have set proxies on since the machine started, or since the helper last ended
/// other than by "stop". `service` is the name of the helper's service. Proxies of other services are older or come
/// from other programs. Needs no privilege. Empty on macOS.
std::set<std::string> servicesWithProxies(const std::string& service);

}  // namespace platform
