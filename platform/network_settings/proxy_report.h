// Which proxies are set on this machine, for people.
#pragma once

#include <string>
#include <vector>

namespace platform {

/// A place that programs learn of proxies from.
struct ProxyPlace {
  std::string name;
  std::string setting;  ///< what is set there; "none" when nothing is
  std::string readers;  ///< the programs that obey it
};

/// All places that a service's "set-proxy" changes, those without a setting too. What cannot be read says why in its
/// setting. Needs no privilege.
std::vector<ProxyPlace> proxyPlaces(const std::string& service);

}  // namespace platform
