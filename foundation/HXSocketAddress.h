// Text of socket addresses in the platform's own layout.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// The IP address, without the port, of a socket address of `size` bytes: an IPv4 one has 16, an IPv6 one 28. Absent
/// for any other size or family and for null.
std::optional<std::string> stringWithIPAddressFromSockaddr(const sockaddr* address, std::uint32_t size);

/// The same, with the size taken from the address itself: its length byte where the platform has one, otherwise its
/// family.
std::optional<std::string> stringWithIPAddressFromSockaddr(const sockaddr* address);

/// The same for bytes that contain exactly one socket address, at any alignment.
std::optional<std::string> stringWithIPAddressFromSockaddrData(std::span<const std::uint8_t> data);
