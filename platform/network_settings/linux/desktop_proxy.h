// Converts proxies to the settings that desktop programs see in place of their users' own. Pure functions.
#pragma once

#include <boost/json/object.hpp>
#include <map>
#include <string>
#include <vector>

#include "platform/network_settings/linux/gvdb.h"
#include "platform/network_settings/linux/proxies_dictionary.h"

namespace platform {

/// Settings of the GSettings schema org.gnome.system.proxy; by default no proxy.
struct DesktopProxy {
  std::string pacURL;                           ///< if empty, `proxies` apply
  std::map<std::string, ProxyAddress> proxies;  ///< keys: "http", "https", "ftp", "socks"
  std::vector<std::string> exceptions;
  bool isOff() const { return pacURL.empty() && proxies.empty(); }
};

/// Converts a proxies dictionary (SCSchemaDefinitions.h). A proxy that is switched on but cannot be used counts as off.
/// So does a PAC script whose URL is not http or https, because not all programs accept it.
DesktopProxy desktopProxy(const boost::json::object& proxies);

/// Whether a dictionary has a PAC script only inline, for which desktop programs have no setting.
bool hasOnlyInlineScript(const boost::json::object& proxies);

/// Values for the keys of the schema that describe the proxy, by dconf path; empty if the proxy is off.
std::map<std::string, GVDBValue> dconfValues(const DesktopProxy& proxy);

/// The same for people and scripts:
/// - {"mode": "none"};
/// - "mode": "manual", with "http", "https", "ftp" and "socks" as far as set, each "HOST:PORT", and "exceptions";
/// - "mode": "auto", with "pac".
boost::json::object inPlainWords(const DesktopProxy& proxy);

}  // namespace platform
