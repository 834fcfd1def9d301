// Proxies as words of a command line.
#pragma once

#include <brimo/requests.h>

#include <string>
#include <vector>

namespace brimo {

struct ProxyArguments {
  Proxies proxies;
  ProxyLifetime lifetime = ProxyLifetime::permanent;
};

/// Reads "http=HOST:PORT", "https=HOST:PORT", "socks=HOST:PORT", "pac=URL", "except=HOST,HOST", "except-simple" and
/// "temporary" in any order, or "off" by itself. IPv6 hosts stand in brackets. Throws std::invalid_argument with a
/// sentence.
ProxyArguments parseProxyArguments(const std::vector<std::string>& words);

}  // namespace brimo
