// Decodes router advertisements.
#pragma once

#include <brimo/RouterAdvertisement.h>

#include <cstdint>
#include <optional>
#include <span>

namespace brimo {

/// Decodes an ICMPv6 message and its sender's socket address in the BSD layout, as "ra-detect" answers them. Absent
/// when they are no well-formed advertisement. Options of other kinds are passed over.
std::optional<RouterAdvertisement> decodeRouterAdvertisement(std::span<const std::uint8_t> message,
                                                             std::span<const std::uint8_t> address);

}  // namespace brimo
