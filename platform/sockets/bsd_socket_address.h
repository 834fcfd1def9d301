// Socket addresses in the BSD layout (sockaddr_in6, sockaddr_dl), as bytes: what messages carry on every platform, and
// what macOS itself uses.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

struct sockaddr_in6;

namespace platform {

/// The address, of whatever layout this system has, in the BSD layout.
std::array<std::uint8_t, 28> bsdSocketAddress(const sockaddr_in6& address);

/// The link-layer address in a block of family AF_LINK, which holds an interface's name before it: empty when there is
/// none, or the lengths that the block states are not within it.
std::vector<std::uint8_t> linkLayerAddressIn(std::span<const std::uint8_t> block);

}  // namespace platform
