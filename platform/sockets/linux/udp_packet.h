// UDP datagrams in IPv4 packets (RFC 791, RFC 768), for sockets that receive whole packets.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

struct UDPPacket {
  std::array<std::uint8_t, 4> source;  ///< network byte order
  std::span<const std::uint8_t> payload;
};

/// Finds the datagram in a packet that begins with its IP header. Bytes after the length that the header states are
/// ignored. Absent unless the packet is a complete, undamaged UDP datagram. `trustChecksum` skips verifying the UDP
/// checksum, but not the IP header's.
std::optional<UDPPacket> readUDPPacket(std::span<const std::uint8_t> packet, bool trustChecksum);

}  // namespace platform
