// Hostnames, with and without a port. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Whether the text is exactly "127.0.0.1", "localhost" or "::1".
bool isLocalhost(std::string_view text);

/// Whether a name matches a shell pattern, ignoring case. A backslash in the pattern is an ordinary character
/// (fnmatch(3) with FNM_NOESCAPE). False if either is absent or contains a zero byte.
bool isHostnameMatchPattern(std::optional<std::string_view> hostname, std::optional<std::string_view> pattern);

/// Whether the text is an IPv6 address, or has 1 to 254 characters, all ASCII letters, digits, ".", "-" or "_", without
/// "..".
bool isValidHostname(std::string_view text);
/// The same, also accepting the wildcards "*" and "?" if `allowsWildcard` is set.
bool isValidHostnameAllowsWildcard(std::string_view text, bool allowsWildcard);
/// The same. With `allowPort`, the name may be followed by ":" and decimal digits, and may be in brackets. The text may
/// then contain no other colon, so it cannot be an IPv6 address. The port's range is not checked.
bool isValidHostnameAllowsWildcard(std::string_view text, bool allowsWildcard, bool allowPort);
bool isValidHostnameAllowsPort(std::string_view text, bool allowsPort);

/// Whether the text is a valid hostname with a port from 1 to 65535. An IPv6 address must be in brackets.
bool isValidHostWithPort(std::string_view text);

/// Whether the text is an IPv4 or IPv6 address. With `allowsPort`, whether the host that getHostname() finds in it is
/// one.
bool isValidIPAddressAllowsPort(std::string_view text, bool allowsPort);

/// Splits "host:port" and "[host]:port". Either pointer may be null.
/// - Without a port, the host is the whole text or, if that begins with "[", the part between "[" and "]". The port is
///   then `defaultPort`.
/// - A port that is not a number from 1 to 65535 with at most five digits becomes 0.
/// - The host is absent if the text begins with "[" and has no "]". With `portFieldMustExist`, it is also absent if the
///   text is an IPv6 address without brackets.
void getHostname(std::string_view text, std::optional<std::string>* hostname, std::uint16_t* port,
                 std::uint16_t defaultPort, bool portFieldMustExist = false);

/// The host that getHostname() finds in a text that contains a ":"; any other text unchanged.
std::optional<std::string> removePortNumberIfExist(std::string_view text);

/// "host:80", "[::1]:80"
std::string hostStringWithHostname(std::string_view hostname, unsigned port);
