// Proxy auto-configuration: the script that tells fixed proxies and their exceptions.
#pragma once

#include <string>
#include <vector>

namespace platform {

/// Which proxies there are, each as "HOST:PORT" of a proxyHost(), or empty.
struct ProxyRules {
  std::string http;   ///< for http: and ws:
  std::string https;  ///< for https: and wss:
  std::string socks;  ///< for every scheme, after the one above
  std::vector<std::string> exceptions;
  bool excludeSimpleHostnames = false;
};

/// A host as scripts name it: a name of ASCII letters, digits, ".", "-" and "_", an IPv4 address, or an IPv6 address,
/// which is put in brackets. Empty when the text is none.
std::string proxyHost(const std::string& text);

/// A script of ECMAScript 5 in ASCII that defines FindProxyForURL() and calls no helper function. An exception is
/// - an IP address or a network ("10.0.0.0/8", "169.254/16", "fe80::/10"): for hosts that are addresses in it;
/// - anything else: a host's whole name, in which "*" stands for any text and "?" for any one character.
/// Blanks around it, the brackets of an IPv6 address and the dot at the end of a full name do not count.
/// What cannot be the name of a host, since it has characters that no name in a URL has, is left out.
std::string proxyScript(const ProxyRules& rules);

}  // namespace platform
