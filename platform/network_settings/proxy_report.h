// Which proxies are set on this machine, for people.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace platform {

/// A place that programs learn of proxies from.
struct ProxyPlace {
  std::string name;
  std::string service;  ///< its ID, where the place is one service's
  std::string setting;  ///< what is set there; "none" when nothing is
  std::string readers;  ///< the programs that obey it
};

/// All places that a service's "set-proxy" changes, those without a setting too. What cannot be read says why in its
/// setting. Needs no privilege.
std::vector<ProxyPlace> proxyPlaces(const std::string& service);

/// The network services that clients have set proxies on since the machine started, or since the helper last ended
/// unexpectedly. What others have is left from before, or somebody else's. Needs no privilege. macOS knows of none.
std::set<std::string> servicesWithProxies(const std::string& service);

}  // namespace platform
