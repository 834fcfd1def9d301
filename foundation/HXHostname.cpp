#include "foundation/HXHostname.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include "foundation/HXIPAddress.h"
#include "foundation/detail/HXDecimalNumber.h"
#include "foundation/detail/HXUnicode.h"

namespace {

constexpr auto npos = std::string_view::npos;

constexpr std::string_view digits = "0123456789";
constexpr std::string_view hostnameCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
constexpr std::string_view patternCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_*?";

/// The port number, or 0 if the text is not a valid port.
std::uint16_t portNumber(std::string_view text) {
  auto port = text.size() <= 5 ? hx::detail::decimalNumber(text).value_or(0) : 0;
  return port <= 65535 ? static_cast<std::uint16_t>(port) : std::uint16_t{0};
}

}  // namespace

bool isLocalhost(std::string_view text) {
  return text == "127.0.0.1" || text == "localhost" || text == "::1";
}

bool isHostnameMatchPattern(std::optional<std::string_view> hostname, std::optional<std::string_view> pattern) {
  if (!hostname || !pattern || hostname->find('\0') != npos || pattern->find('\0') != npos) return false;
  return fnmatch(hx::detail::lowercase(*pattern).c_str(), hx::detail::lowercase(*hostname).c_str(), FNM_NOESCAPE) == 0;
}

bool isValidHostname(std::string_view text) {
  return isValidHostnameAllowsWildcard(text, false);
}

bool isValidHostnameAllowsWildcard(std::string_view text, bool allowsWildcard) {
  if (isIPv6Address(text)) return true;
  return !text.empty() && text.size() <= 254 && text.find("..") == npos &&
         text.find_first_not_of(allowsWildcard ? patternCharacters : hostnameCharacters) == npos;
}

bool isValidHostnameAllowsWildcard(std::string_view text, bool allowsWildcard, bool allowPort) {
  auto colon = text.find(':');
  if (!allowPort || colon == npos) return isValidHostnameAllowsWildcard(text, allowsWildcard);
  auto port = text.substr(colon + 1);
  if (port.empty() || port.find_first_not_of(digits) != npos) return false;
  std::optional<std::string> hostname;
  getHostname(text, &hostname, nullptr, 0);
  return hostname && isValidHostnameAllowsWildcard(*hostname, allowsWildcard);
}

bool isValidHostnameAllowsPort(std::string_view text, bool allowsPort) {
  return isValidHostnameAllowsWildcard(text, false, allowsPort);
}

bool isValidHostWithPort(std::string_view text) {
  std::optional<std::string> hostname;
  std::uint16_t port;
  getHostname(text, &hostname, &port, 0, true);
  return port != 0 && hostname && isValidHostname(*hostname);
}

bool isValidIPAddressAllowsPort(std::string_view text, bool allowsPort) {
  if (!allowsPort) return isIPAddress(text);
  std::optional<std::string> hostname;
  getHostname(text, &hostname, nullptr, 0);
  return hostname && isIPAddress(*hostname);
}

void getHostname(std::string_view text, std::optional<std::string>* hostname, std::uint16_t* port,
                 std::uint16_t defaultPort, bool portFieldMustExist) {
  std::optional<std::string_view> host;
  std::uint16_t number = defaultPort;
  if (text.starts_with('[')) {
    if (auto end = text.find(']'); end != npos) {
      host = text.substr(1, end - 1);
      if (auto colon = text.find("]:"); colon != npos) number = portNumber(text.substr(colon + 2));
    }
  } else if (!isIPv6Address(text)) {
    auto colon = text.rfind(':');
    host = text.substr(0, colon);
    if (colon != npos) number = portNumber(text.substr(colon + 1));
  } else if (!portFieldMustExist) {
    host = text;
  }
  if (port) *port = number;
  // Assigned last: the text may refer to the very string assigned here.
  if (hostname) *hostname = host ? std::optional(std::string(*host)) : std::nullopt;
}

std::optional<std::string> removePortNumberIfExist(std::string_view text) {
  if (text.find(':') == npos) return std::string(text);
  std::optional<std::string> hostname;
  getHostname(text, &hostname, nullptr, 0);
  return hostname;
}

std::string hostStringWithHostname(std::string_view hostname, unsigned port) {
  return isIPv6Address(hostname) ? fmt::format("[{}]:{}", hostname, port) : fmt::format("{}:{}", hostname, port);
}
