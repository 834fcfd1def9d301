#include "helper/probes/router_advertisement.h"

namespace {

constexpr std::size_t minimumAdvertisement = 16;
constexpr std::size_t ipv6Header = 40;
constexpr int undiminishedHopLimit = 255;
constexpr std::uint8_t routerAdvertisement = 134;

bool isLinkLocal(std::span<const std::uint8_t, 16> address) {
  return address[0] == 0xFE && (address[1] & 0xC0) == 0x80;  // fe80::/10
}

}  // namespace

std::optional<std::span<const std::uint8_t>> BRHRouterAdvertisement(std::span<const std::uint8_t> datagram,
                                                                    std::optional<int> hopLimit,
                                                                    std::span<const std::uint8_t, 16> source) {
  if (datagram.size() < minimumAdvertisement || hopLimit != undiminishedHopLimit || !isLinkLocal(source)) return {};
  auto message = datagram;
  if (datagram[0] >> 4 == 6) {
    if (datagram.size() < ipv6Header + minimumAdvertisement) return {};
    message = datagram.subspan(ipv6Header);
  }
  const bool hasLifetime = message[6] != 0 || message[7] != 0;
  if (message[0] != routerAdvertisement || message[1] != 0 || !hasLifetime) return {};
  return message;
}
