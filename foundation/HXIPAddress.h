// IP addresses as text, numbers and bytes. Any thread.
//
// Address texts are those that inet_pton(3) accepts: IPv4 in four decimal parts, IPv6 without a scope.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

bool isIPv4Address(std::string_view text);
bool isIPv6Address(std::string_view text);
bool isIPAddress(std::string_view text);

/// Whether the text is an address in ::ffff:0:0/96.
bool isIPv4MappedIPv6Address(std::string_view text);
/// Whether the text is an address in 224.0.0.0/4.
bool isMulticastIPv4Address(std::string_view text);
/// Whether the text is a global unicast address (2000::/3).
bool isGUAIPv6Address(std::string_view text);
/// Whether the text is a unique local address (fc00::/7, RFC 4193).
bool isULAIPv6Address(std::string_view text);

/// Whether the text is an IPv4 address other than 127.0.0.1 and not in 0.0.0.0/8, 169.254.0.0/16 or 198.18.0.0/16.
bool isValidAccessableIPv4Address(std::string_view text);

/// Whether the text is an IPv4 address, "/" and a prefix length from 0 to 32 with one to three digits. IPv6 is not
/// accepted.
bool isIPCIDRString(std::string_view text);

/// An IPv4 address in network byte order; 0 if the text is not one.
std::uint32_t IPAddressUsingNetworkByteOrder(std::string_view text);
/// An IPv4 address in host byte order; 0 if the text is not one.
std::uint32_t IPAddressUsingHostByteOrder(std::string_view text);

/// The text of an IPv4 address; absent if the system cannot convert it.
std::optional<std::string> stringWithIPAddressUsingNetworkByteOrder(std::uint32_t address);
std::optional<std::string> stringWithIPAddressUsingHostByteOrder(std::uint32_t address);

/// The IPv4 address in an IPv4-mapped IPv6 address; absent for any other text.
std::optional<std::string> mappedIPv6AddressToIPv4Address(std::string_view text);

/// The text of an IPv6 address in network byte order; absent if the system cannot convert it.
std::optional<std::string> stringWithIPv6Address(std::span<const std::uint8_t, 16> address);
std::optional<std::string> stringWithIPv6AddressV(std::array<std::uint8_t, 16> address);

/// "00:1A:2B:3C:4D:5E"
std::string macAddressFromBuffer(std::span<const std::uint8_t, 6> buffer);
