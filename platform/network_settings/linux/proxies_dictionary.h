// Reads a network service's proxies dictionary (SCSchemaDefinitions.h).
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/result.h"

namespace platform {

/// Whether the value of a key is true or a number other than 0.
bool isSwitchedOn(const boost::json::object& proxies, const std::string& key);

struct ProxyAddress {
  std::string host;  ///< a result of proxyHost() (proxy_script.h)
  std::uint16_t port = 0;
};

/// "HOST:PORT"; empty if there is no proxy.
std::string textOf(const std::optional<ProxyAddress>& proxy);

/// The proxy of a kind such as "HTTP"; absent if it is switched off. Fails if it is switched on but its host or port is
/// missing or invalid.
Result<std::optional<ProxyAddress>> fixedProxy(const boost::json::object& proxies, const std::string& kind);

/// The elements of "ExceptionsList"; an element that is not a text becomes an empty text.
std::vector<std::string> proxyExceptions(const boost::json::object& proxies);

/// Whether a text can be a URL: one or more printable ASCII characters without spaces.
bool isPlainURL(std::string_view text);

}  // namespace platform
