// Socket addresses of this platform's own layout as text.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// The address in a socket address of `size` bytes, without the port: 16 bytes must be an IPv4, 28 an IPv6 one. Absent
/// for everything else and for null.
std::optional<std::string> stringWithIPAddressFromSockaddr(const sockaddr* address, std::uint32_t size);

/// The same, with the size that the address has by itself: its own length byte where there is one, else by its family.
std::optional<std::string> stringWithIPAddressFromSockaddr(const sockaddr* address);

/// The same for bytes that hold a socket address and nothing more, at any alignment.
std::optional<std::string> stringWithIPAddressFromSockaddrData(std::span<const std::uint8_t> data);
