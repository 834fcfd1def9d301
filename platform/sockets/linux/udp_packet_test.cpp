// Tests good packets, and packets that each have one wrong length or checksum.
#include "platform/sockets/linux/udp_packet.h"

#include <gmock/gmock.h>

#include <map>
#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

// 192.0.2.1:67 to 255.255.255.255:68, "offer".
const Bytes whole{0x45, 0,   0,   33, 0x12, 0x34, 0,  0, 64, 17,   0xA6, 0x97, 192, 0,   2,   1,  255,
                  255,  255, 255, 0,  67,   0,    68, 0, 13, 0xF5, 0x7F, 'o',  'f', 'f', 'e', 'r'};

/// The packet with a corrected checksum of its IP header.
Bytes summed(Bytes packet) {
  packet[10] = packet[11] = 0;
  unsigned total = 0;
  for (std::size_t offset = 0; offset < std::size_t{4} * (packet[0] & 15u); ++offset) {
    total += static_cast<unsigned>(packet[offset] << (offset % 2 == 0 ? 8 : 0));
  }
  total = ~(total + (total >> 16));
  packet[10] = static_cast<std::uint8_t>(total >> 8 & 0xFF);
  packet[11] = static_cast<std::uint8_t>(total & 0xFF);
  return packet;
}

std::optional<std::string> payload(const Bytes& packet, bool trustChecksum = false) {
  auto found = readUDPPacket(packet, trustChecksum);
  if (!found) return std::nullopt;
  return std::string(found->payload.begin(), found->payload.end());
}

TEST(UDPPacket, HasASourceAndAPayloadWithoutPadding) {
  EXPECT_THAT(readUDPPacket(whole, false)->source, ElementsAre(192, 0, 2, 1));
  EXPECT_EQ(payload(whole), "offer");
  auto padded = whole;
  padded.resize(60, 0xEE);
  EXPECT_EQ(payload(padded), "offer");

  auto withOptions = whole;
  withOptions.insert(withOptions.begin() + 20, {1, 1, 1, 0});
  withOptions[0] = 0x46;
  withOptions[3] = 37;
  EXPECT_EQ(payload(summed(withOptions)), "offer");
}

TEST(UDPPacket, ChecksumsAreVerified) {
  for (std::size_t offset = 0; offset < whole.size(); ++offset) {
    auto damaged = whole;
    damaged[offset] ^= 0x04;
    EXPECT_EQ(payload(damaged), std::nullopt) << offset;
  }
  auto damaged = whole;
  damaged.back() ^= 1;
  EXPECT_EQ(payload(damaged, true), "offes");  // the kernel says that the sender did not compute it
  damaged[26] = damaged[27] = 0;
  EXPECT_EQ(payload(damaged), "offes");  // the sender computed none
  damaged[10] ^= 1;
  EXPECT_EQ(payload(damaged, true), std::nullopt);
}

TEST(UDPPacket, LengthsAreChecked) {
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(payload(Bytes(whole.data(), whole.data() + length), true), std::nullopt);
  }
  auto with = [](const std::map<std::size_t, std::uint8_t>& changes) {
    auto packet = whole;
    for (auto [offset, value] : changes) packet[offset] = value;
    packet[26] = packet[27] = 0;
    return payload(summed(packet));
  };
  EXPECT_EQ(with({{25, 12}}), "offe");                            // shorter than the packet
  EXPECT_EQ(with({{25, 8}, {3, 28}}), "");                        // only headers
  EXPECT_EQ(with({{25, 7}}), std::nullopt);                       // shorter than its header
  EXPECT_EQ(with({{25, 14}}), std::nullopt);                      // longer than the packet
  EXPECT_EQ(with({{3, 27}}), std::nullopt);                       // packet ends inside the UDP header
  EXPECT_EQ(with({{3, 19}}), std::nullopt);                       // packet ends inside the IP header
  EXPECT_EQ(with({{0, 0x44}, {21, 13}, {23, 0}}), std::nullopt);  // IP header is too short
  EXPECT_EQ(with({{0, 0x65}}), std::nullopt);                     // IPv6
  EXPECT_EQ(with({{6, 0x20}}), std::nullopt);                     // fragments
  EXPECT_EQ(with({{7, 1}}), std::nullopt);
  EXPECT_EQ(with({{6, 0x40}}), "offer");    // "don't fragment" does not make a fragment
  EXPECT_EQ(with({{9, 6}}), std::nullopt);  // TCP
}

}  // namespace
}  // namespace platform
