// Proxies as words of a command line.
#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <string>
#include <vector>

namespace brimo {

struct ProxyArguments {
  boost::json::object proxies;  ///< a proxies dictionary (SCSchemaDefinitions.h)
  std::optional<bool> cleanup;  ///< as HelperClient::setProxies() takes it
};

/// Reads "http=HOST:PORT", "https=HOST:PORT", "socks=HOST:PORT", "pac=URL", "except=HOST,HOST", "except-simple" and
/// "temporary" in any order, or "off" by itself. IPv6 hosts stand in brackets. Throws std::invalid_argument with a
/// sentence.
ProxyArguments parseProxyArguments(const std::vector<std::string>& words);

}  // namespace brimo
