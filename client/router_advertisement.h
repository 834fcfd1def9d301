// Decodes router advertisements.
#pragma once

#include <brimo/RouterAdvertisement.h>

#include <cstdint>
#include <optional>
#include <span>

namespace brimo {

/// Decodes the two values that "ra-detect" returns: an ICMPv6 message and the sender's socket address in the BSD
/// layout. Absent unless they form a well-formed advertisement. Ignores unknown options.
std::optional<RouterAdvertisement> decodeRouterAdvertisement(std::span<const std::uint8_t> message,
                                                             std::span<const std::uint8_t> address);

}  // namespace brimo
