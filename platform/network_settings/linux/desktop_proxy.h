// What programs of a desktop are told of proxies, in place of what their users set. Pure functions.
#pragma once

#include <boost/json/object.hpp>
#include <map>
#include <string>
#include <vector>

#include "platform/network_settings/linux/gvdb.h"
#include "platform/network_settings/linux/proxies_dictionary.h"

namespace platform {

/// The settings of GSettings' schema org.gnome.system.proxy; by default no proxy.
struct DesktopProxy {
  std::string pacURL;                           ///< empty: the proxies hold
  std::map<std::string, ProxyAddress> proxies;  ///< by "http", "https", "ftp" and "socks"
  std::vector<std::string> exceptions;
  bool isOff() const { return pacURL.empty() && proxies.empty(); }
};

/// What a proxies dictionary comes to (SCSchemaDefinitions.h). What is switched on and cannot be used counts as off; so
/// does a PAC script that is not at an http or https URL, which not all of the programs would take.
DesktopProxy desktopProxy(const boost::json::object& proxies);

/// Whether a dictionary's only PAC script is inside it, for which the desktop's programs have no setting.
bool hasOnlyInlineScript(const boost::json::object& proxies);

/// All keys of the schema with their paths in dconf; nothing when it is off.
std::map<std::string, GVDBValue> dconfValues(const DesktopProxy& proxy);

/// The same for people and scripts: {"mode": "none"}; or "mode": "manual" with "http", "https", "ftp" and "socks" where
/// there are such, each "HOST:PORT", and "exceptions"; or "mode": "auto" with "pac".
boost::json::object inPlainWords(const DesktopProxy& proxy);

}  // namespace platform
