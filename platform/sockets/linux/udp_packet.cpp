#include "platform/sockets/linux/udp_packet.h"

#include <netinet/in.h>

#include <algorithm>

namespace platform {

namespace {

constexpr std::size_t minimumIPHeader = 20;
constexpr std::size_t udpHeader = 8;

unsigned word(std::span<const std::uint8_t> bytes, std::size_t offset) {
  return static_cast<unsigned>(bytes[offset] << 8 | bytes[offset + 1]);
}

/// The ones' complement sum of 16-bit words (RFC 1071), not complemented: 0xFFFF for bytes that include their own
/// checksum.
unsigned sum(std::span<const std::uint8_t> bytes, unsigned start = 0) {
  unsigned total = start;
  for (std::size_t offset = 0; offset + 1 < bytes.size(); offset += 2) total += word(bytes, offset);
  if (bytes.size() % 2 == 1) total += static_cast<unsigned>(bytes.back() << 8);
  while (total > 0xFFFF) total = (total >> 16) + (total & 0xFFFF);
  return total;
}

}  // namespace

std::optional<UDPPacket> readUDPPacket(std::span<const std::uint8_t> packet, bool trustChecksum) {
  if (packet.size() < minimumIPHeader || packet[0] >> 4 != 4) return std::nullopt;
  const std::size_t headerLength = std::size_t{4} * (packet[0] & 0x0Fu);
  const std::size_t packetLength = word(packet, 2);
  constexpr unsigned fragment = 0x3FFF;  // flag and offset that only fragments have
  if (headerLength < minimumIPHeader || packetLength < headerLength + udpHeader || packetLength > packet.size() ||
      (word(packet, 6) & fragment) != 0 || packet[9] != IPPROTO_UDP || sum(packet.first(headerLength)) != 0xFFFF) {
    return std::nullopt;
  }

  auto datagram = packet.subspan(headerLength, packetLength - headerLength);
  const std::size_t length = word(datagram, 4);
  if (length < udpHeader || length > datagram.size()) return std::nullopt;
  datagram = datagram.first(length);
  // The sum includes a pseudo header: both addresses, the protocol and the length. A checksum field of zero means that
  // the sender computed none.
  const unsigned pseudoHeader = sum(packet.subspan(12, 8), static_cast<unsigned>(IPPROTO_UDP + length));
  if (!trustChecksum && word(datagram, 6) != 0 && sum(datagram, pseudoHeader) != 0xFFFF) return std::nullopt;

  UDPPacket found{.source = {}, .payload = datagram.subspan(udpHeader)};
  std::copy_n(packet.begin() + 12, found.source.size(), found.source.begin());
  return found;
}

}  // namespace platform
