// Which router advertisements count (RFC 4861, 6.1.2).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

/// The ICMPv6 message of an advertisement by a default router on the link: the datagram without an IPv6 header that it
/// may begin with. `source` is the sender's IPv6 address. Absent when the datagram is anything else: the hop limit must
/// not have been counted down on the way, the sender's address be link-local and the router's lifetime not be zero.
std::optional<std::span<const std::uint8_t>> BRHRouterAdvertisement(std::span<const std::uint8_t> datagram,
                                                                    std::optional<int> hopLimit,
                                                                    std::span<const std::uint8_t, 16> source);
