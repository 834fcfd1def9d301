// What NetworkManager is told of a network service's preferences. Pure functions.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <string>

#include "platform/base/result.h"

namespace platform {

/// NetworkManager's setting "proxy" (nm-settings-dbus(5)); by default no proxy.
struct ProxySetting {
  bool automatic = false;  ///< then one of the two is not empty
  std::string pacURL;
  std::string pacScript;  ///< holds "FindProxyForURL"
  bool operator==(const ProxySetting&) const = default;
};

/// What a proxies dictionary comes to (SCSchemaDefinitions.h): a PAC script's URL, or where there is none the script
/// itself, when automatic configuration is switched on; else, when proxies for HTTP, HTTPS or SOCKS are, a script that
/// tells them (proxy_script.h); else nothing.
///
/// A proxy that is switched on and cannot be used, since its host, port or script is missing or none, is a failure: to
/// go without it would send what was to be proxied over the open network.
Result<ProxySetting> projectProxies(const boost::json::object& proxies);

/// The part of NetworkManager's setting "ipv4" that a manual configuration determines.
struct IPv4Setting {
  std::string address;
  std::uint32_t prefix = 0;  ///< bits
  std::string gateway;
  bool operator==(const IPv4Setting&) const = default;
};

/// What a manual IPv4 entity comes to. Fails when it is not one of exactly one address, with a contiguous mask
/// and a router.
Result<IPv4Setting> projectIPv4(const boost::json::object& entity);

}  // namespace platform
