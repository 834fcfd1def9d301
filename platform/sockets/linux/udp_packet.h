// UDP datagrams in IPv4 packets (RFC 791, RFC 768), for sockets that receive whole packets.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

struct UDPPacket {
  std::array<std::uint8_t, 4> source;  ///< network order
  std::span<const std::uint8_t> payload;
};

/// Finds the datagram in a packet that begins with its IP header; bytes after the packet's end are passed over. Absent
/// when it is not a whole, undamaged UDP datagram. The checksum of the datagram, not that of the IP header, is taken on
/// trust with `trustChecksum`.
std::optional<UDPPacket> readUDPPacket(std::span<const std::uint8_t> packet, bool trustChecksum);

}  // namespace platform
