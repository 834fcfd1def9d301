// Tests advertisements that each have one fault.
#include "helper/probes/router_advertisement.h"

#include <gmock/gmock.h>

#include <array>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Address = std::array<std::uint8_t, 16>;

constexpr Address linkLocal{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x42, 0xAC, 0xFF, 0xFE, 0x11, 0, 1};
const Bytes advertisement{134, 0, 0x12, 0x34, 64, 0, 0x07, 0x08, 0, 0, 0, 0, 0, 0, 0, 0, 5, 1, 0, 0, 0, 0, 0x05, 0xDC};

Bytes changed(std::size_t offset, std::uint8_t value) {
  auto copy = advertisement;
  copy[offset] = value;
  return copy;
}

std::optional<Bytes> judge(const Bytes& datagram, std::optional<int> hopLimit = 255,
                           const Address& source = linkLocal) {
  auto message = BRHRouterAdvertisement(datagram, hopLimit, source);
  return message ? std::optional(Bytes(message->begin(), message->end())) : std::nullopt;
}

TEST(RouterAdvertisement, IsReturnedWhole) {
  EXPECT_EQ(judge(advertisement), advertisement);
  Bytes shortest(advertisement.begin(), advertisement.begin() + 16);
  EXPECT_EQ(judge(shortest), shortest);
  EXPECT_TRUE(judge(changed(6, 0)));  // the other byte of the lifetime is not 0
  EXPECT_TRUE(judge(changed(7, 0)));
}

TEST(RouterAdvertisement, AnIPv6HeaderBeforeItIsRemoved) {
  Bytes packet(40);
  packet[0] = 0x60;
  packet.insert(packet.end(), advertisement.begin(), advertisement.end());
  EXPECT_EQ(judge(packet), advertisement);
  packet.resize(56);
  EXPECT_EQ(judge(packet), Bytes(advertisement.begin(), advertisement.begin() + 16));
  packet.resize(55);
  EXPECT_FALSE(judge(packet));
}

TEST(RouterAdvertisement, AnySingleFaultIsIgnored) {
  EXPECT_FALSE(judge(Bytes(advertisement.begin(), advertisement.begin() + 15)));
  EXPECT_FALSE(judge({}));
  EXPECT_FALSE(judge(changed(0, 133)));
  EXPECT_FALSE(judge(changed(1, 1)));
  auto retired = changed(6, 0);
  retired[7] = 0;
  EXPECT_FALSE(judge(retired));
  for (std::optional<int> hopLimit : {std::optional(254), std::optional(64), std::optional(-1), std::optional<int>()}) {
    EXPECT_FALSE(judge(advertisement, hopLimit));
  }
}

TEST(RouterAdvertisement, SenderIsLinkLocal) {
  auto from = [](std::uint8_t first, std::uint8_t second) {
    auto address = linkLocal;
    address[0] = first;
    address[1] = second;
    return judge(advertisement, 255, address).has_value();
  };
  EXPECT_TRUE(from(0xFE, 0x80));
  EXPECT_TRUE(from(0xFE, 0xBF));
  EXPECT_FALSE(from(0xFE, 0x7F));
  EXPECT_FALSE(from(0xFE, 0xC0));
  EXPECT_FALSE(from(0xFF, 0x80));
}

}  // namespace
