// Generates proxy auto-configuration scripts for fixed proxies and their exceptions.
#pragma once

#include <string>
#include <vector>

namespace platform {

/// The proxies, each as "HOST:PORT" with a host from proxyHost(), or empty.
struct ProxyRules {
  std::string http;   ///< for http: and ws:
  std::string https;  ///< for https: and wss:
  std::string socks;  ///< for every scheme, tried after the scheme's own proxy
  std::vector<std::string> exceptions;
  bool excludesSimpleHostnames = false;
};

/// A host in the form that scripts use: a name of ASCII letters, digits, ".", "-" and "_", an IPv4 address, or an IPv6
/// address, which is put in brackets. Empty for any other text.
std::string proxyHost(const std::string& text);

/// An exception without additions that people make: spaces around it, the brackets of an IPv6 address, the dot at the
/// end of a full name. Empty if a character cannot occur in an exception.
std::string proxyException(const std::string& text);

/// A script in ASCII and ECMAScript 5 that defines FindProxyForURL() and uses no function of PAC's own. Exceptions are
/// cleaned by proxyException(); empty ones are left out. An exception is one of:
/// - an IP address or a network ("10.0.0.0/8", "169.254/16", "fe80::/10"), which matches hosts that are addresses in
///   it;
/// - anything else: a pattern for the whole host name, in which "*" matches any text and "?" any character.
std::string proxyScript(const ProxyRules& rules);

}  // namespace platform
