// Socket addresses in the BSD layout (sockaddr_in6, sockaddr_dl) as bytes. Messages carry this layout on every
// platform; macOS uses it natively.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

struct sockaddr_in6;

namespace platform {

/// Converts an address from this system's layout to the BSD layout.
std::array<std::uint8_t, 28> bsdSocketAddress(const sockaddr_in6& address);

/// The link-layer address in a block of family AF_LINK, where it follows an interface name. Empty if there is none or
/// the stated lengths exceed the block.
std::vector<std::uint8_t> linkLayerAddressIn(std::span<const std::uint8_t> block);

}  // namespace platform
