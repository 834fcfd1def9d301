// Hostnames, with and without a port. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Exactly "127.0.0.1", "localhost" or "::1".
bool isLocalhost(std::string_view text);

/// Whether a name matches a shell pattern (fnmatch(3), the backslash being an ordinary character), upper and lower case
/// being the same. False when either is absent or holds a zero byte.
bool isHostnameMatchPattern(std::optional<std::string_view> hostname, std::optional<std::string_view> pattern);

/// An IPv6 address, or 1 to 254 ASCII letters, digits, ".", "-" and "_" without "..", in any order otherwise.
bool isValidHostname(std::string_view text);
/// The same; the wildcards are "*" and "?".
bool isValidHostnameAllowsWildcard(std::string_view text, bool allowsWildcard);
/// With allowPort, ":" and decimal digits may follow the name, and the whole may hold no other colon, which rules out
/// IPv6 addresses. The port's range is not looked at.
bool isValidHostnameAllowsWildcard(std::string_view text, bool allowsWildcard, bool allowPort);
bool isValidHostnameAllowsPort(std::string_view text, bool allowsPort);

/// A valid hostname with a port from 1 to 65535; an IPv6 address stands in brackets.
bool isValidHostWithPort(std::string_view text);

/// An IP address of either family. With allowsPort, what getHostname() takes for the host must be one.
bool isValidIPAddressAllowsPort(std::string_view text, bool allowsPort);

/// Splits "host:port" and "[host]:port". Without a port the host is the whole text, less the brackets, and the port is
/// defaultPort; a port that is no number from 1 to 65535 of at most five digits becomes 0. The host is absent for a "["
/// without a "]", and, with portFieldMustExist, for an IPv6 address without brackets. Either pointer may be null.
void getHostname(std::string_view text, std::optional<std::string>* hostname, std::uint16_t* port,
                 std::uint16_t defaultPort, bool portFieldMustExist = false);

/// The host of a text that holds a ":", as getHostname() tells it; any other text as it is.
std::optional<std::string> removePortNumberIfExist(std::string_view text);

/// "host:80", "[::1]:80"
std::string hostStringWithHostname(std::string_view hostname, unsigned port);
