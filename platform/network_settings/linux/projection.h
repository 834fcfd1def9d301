// Converts a network service's preferences to settings of NetworkManager. Pure functions.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <string>

#include "platform/base/result.h"

namespace platform {

/// NetworkManager's setting "proxy" (nm-settings-dbus(5)); by default no proxy.
struct ProxySetting {
  bool automatic = false;  ///< if set, one of the two texts is not empty
  std::string pacURL;
  std::string pacScript;  ///< contains "FindProxyForURL"
  bool operator==(const ProxySetting&) const = default;
};

/// Converts a proxies dictionary (SCSchemaDefinitions.h). The first of these that is switched on applies:
/// - automatic configuration: the URL of a PAC script or, without a URL, the script itself;
/// - proxies for HTTP, HTTPS or SOCKS: a generated script (proxy_script.h).
/// If neither is switched on, the result is no proxy.
///
/// Fails if a proxy is switched on but its host, port or script is missing or invalid: without the proxy, traffic meant
/// for it would go out over the open network.
Result<ProxySetting> projectProxies(const boost::json::object& proxies);

/// The part of NetworkManager's setting "ipv4" that a manual configuration determines.
struct IPv4Setting {
  std::string address;
  std::uint32_t prefix = 0;  ///< bits
  std::string gateway;
  bool operator==(const IPv4Setting&) const = default;
};

/// Converts a manual IPv4 entity. Fails unless it has exactly one address, a contiguous mask and a router.
Result<IPv4Setting> projectIPv4(const boost::json::object& entity);

}  // namespace platform
