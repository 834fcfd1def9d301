// The address of a socket, or of the remote end of its connection.
#pragma once

#include <brimo/result.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

struct sockaddr;

namespace brimo {
inline namespace v1 {

struct SocketAddress {
  bool isIPv6 = false;
  std::array<std::uint8_t, 16> bytes{};  ///< in network order; IPv4 uses the first four
  std::uint16_t port = 0;                ///< in host order
  std::uint32_t scope = 0;               ///< interface index of a link-local IPv6 address
};

/// Converts a sockaddr_in or sockaddr_in6; absent for other families. A v4-mapped IPv6 address stays an IPv6 address.
BRIMO_CLIENT_API std::optional<SocketAddress> socketAddress(const ::sockaddr* address);

/// Parses "192.0.2.1:80", "[2001:db8::1]:80" or "[fe80::1%eth0]:80". Absent for any other form, or when this machine
/// does not have the interface.
BRIMO_CLIENT_API std::optional<SocketAddress> parseSocketAddress(const std::string& text);

}  // namespace v1
}  // namespace brimo
