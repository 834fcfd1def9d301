// Ancillary data of received messages (recvmsg(2), cmsg(3)).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// The hop limit that came with a datagram, by the first header that carries one (IPV6_2292HOPLIMIT). Absent when there
/// is none, or a header before it is not well-formed.
std::optional<int> hopLimitIn(std::span<const std::uint8_t> ancillary);

}  // namespace platform
