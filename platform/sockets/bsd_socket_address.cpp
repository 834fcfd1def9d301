#include "platform/sockets/bsd_socket_address.h"

#include <netinet/in.h>

#include <cstring>

namespace platform {

std::array<std::uint8_t, 28> bsdSocketAddress(const sockaddr_in6& address) {
  constexpr std::uint8_t lengthByte = 28, familyByte = 30;
  std::array<std::uint8_t, 28> block{lengthByte, familyByte};
  std::memcpy(block.data() + 2, &address.sin6_port, 2);
  std::memcpy(block.data() + 4, &address.sin6_flowinfo, 4);
  std::memcpy(block.data() + 8, &address.sin6_addr, 16);
  std::memcpy(block.data() + 24, &address.sin6_scope_id, 4);
  return block;
}

std::vector<std::uint8_t> linkLayerAddressIn(std::span<const std::uint8_t> block) {
  // Byte 5 is the name's length, byte 6 the address's; the name begins at byte 8 and the address follows it.
  constexpr std::size_t data = 8;
  if (block.size() < data) return {};
  const std::size_t nameLength = block[5], addressLength = block[6];
  if (block.size() - data < nameLength + addressLength) return {};
  const auto address = block.subspan(data + nameLength, addressLength);
  return {address.begin(), address.end()};
}

}  // namespace platform
