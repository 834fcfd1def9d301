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

/// An exception without what people put around the name of a host: blanks around it, the brackets of an IPv6 address,
/// the dot at the end of a full name. Empty when it has characters that no name of a host in a URL has.
std::string proxyException(const std::string& text);

/// A script of ECMAScript 5 in ASCII that defines FindProxyForURL() and calls no helper function. An exception is
/// - an IP address or a network ("10.0.0.0/8", "169.254/16", "fe80::/10"): for hosts that are addresses in it;
/// - anything else: a host's whole name, in which "*" stands for any text and "?" for any one character.
/// Each is taken as proxyException() has it; empty ones are left out.
std::string proxyScript(const ProxyRules& rules);

}  // namespace platform
