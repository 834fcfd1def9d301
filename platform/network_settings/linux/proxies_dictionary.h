// What a network service's proxies dictionary says (SCSchemaDefinitions.h).
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/result.h"

namespace platform {

/// Whether the value of a key is a number other than 0, or true.
bool isSwitchedOn(const boost::json::object& proxies, const std::string& key);

struct ProxyAddress {
  std::string host;  ///< as proxyHost() makes it (proxy_script.h)
  std::uint16_t port = 0;
};

/// "HOST:PORT"; empty when there is no proxy.
std::string textOf(const std::optional<ProxyAddress>& proxy);

/// The proxy of a kind, "HTTP" for example; absent when it is switched off. Fails when it is switched on, and its host
/// or port is missing or none.
Result<std::optional<ProxyAddress>> fixedProxy(const boost::json::object& proxies, const std::string& kind);

/// "ExceptionsList"; what in it is no text is empty.
std::vector<std::string> proxyExceptions(const boost::json::object& proxies);

/// Whether a text can be a URL: some of ASCII's characters, and no blank.
bool isPlainURL(std::string_view text);

}  // namespace platform
