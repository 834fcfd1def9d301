// Validates router advertisements (RFC 4861, section 6.1.2).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

/// Returns the ICMPv6 message in a datagram, without the IPv6 header that the datagram may begin with. Absent unless
/// the message is the advertisement of a default router on the link:
///
/// - the hop limit is 255, so no router has forwarded it;
/// - `source`, the sender's IPv6 address, is link-local;
/// - the router lifetime is not 0.
std::optional<std::span<const std::uint8_t>> BRHRouterAdvertisement(std::span<const std::uint8_t> datagram,
                                                                    std::optional<int> hopLimit,
                                                                    std::span<const std::uint8_t, 16> source);
