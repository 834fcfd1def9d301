// Ancillary data of received messages (recvmsg(2), cmsg(3)).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// The hop limit of a datagram, from the first header that carries one (IPV6_2292HOPLIMIT). Absent if there is none or
/// an earlier header is malformed.
std::optional<int> hopLimitIn(std::span<const std::uint8_t> ancillary);

}  // namespace platform
