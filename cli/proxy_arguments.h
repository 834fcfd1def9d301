// Parses proxies from the words of a command.
#pragma once

#include <brimo/requests.h>

#include <string>
#include <vector>

namespace brimo {

struct ProxyArguments {
  Proxies proxies;
  ProxyLifetime lifetime = ProxyLifetime::permanent;
};

/// Parses "off" alone, or any of these words in any order: "http=HOST:PORT", "https=HOST:PORT", "socks=HOST:PORT",
/// "pac=URL", "except=HOST,HOST", "except-simple" and "temporary". IPv6 hosts need brackets. If a word is invalid or
/// given twice, throws std::invalid_argument with a sentence for people.
ProxyArguments parseProxyArguments(const std::vector<std::string>& words);

}  // namespace brimo
