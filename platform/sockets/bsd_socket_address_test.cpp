// Tests every byte of addresses in the BSD layout.
#include "platform/sockets/bsd_socket_address.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>

namespace platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(BSDSocketAddress, IPv6) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(0x1234);
  address.sin6_flowinfo = htonl(0x000ABCDE);
  address.sin6_scope_id = 0x01020304;
  ASSERT_EQ(inet_pton(AF_INET6, "fe80::a1", &address.sin6_addr), 1);
  EXPECT_THAT(bsdSocketAddress(address), ElementsAre(28, 30, 0x12, 0x34, 0, 0x0A, 0xBC, 0xDE, 0xFE, 0x80, 0, 0, 0, 0, 0,
                                                     0, 0, 0, 0, 0, 0, 0, 0, 0xA1, 4, 3, 2, 1));
}

TEST(BSDSocketAddress, LinkLayerAddressFollowsTheName) {
  const std::vector<std::uint8_t> ethernet{20, 18, 4, 0, 6, 3, 6, 0, 'e', 'n', '0', 1, 2, 3, 4, 5, 6, 0, 0, 0};
  EXPECT_THAT(linkLayerAddressIn(ethernet), ElementsAre(1, 2, 3, 4, 5, 6));
  // With a long name, the block is longer than a sockaddr_dl.
  std::vector<std::uint8_t> longName{24, 18, 4, 0, 6, 10, 6, 0};
  longName.insert(longName.end(), {'b', 'r', 'i', 'd', 'g', 'e', '1', '0', '0', '0', 1, 2, 3, 4, 5, 6});
  EXPECT_THAT(linkLayerAddressIn(longName), ElementsAre(1, 2, 3, 4, 5, 6));
  const std::vector<std::uint8_t> loopback{20, 18, 1, 0, 24, 3, 0, 0, 'l', 'o', '0', 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_THAT(linkLayerAddressIn(loopback), IsEmpty());
  for (std::size_t size = 0; size < 17; ++size) {
    EXPECT_THAT(linkLayerAddressIn(std::span(ethernet).first(size)), IsEmpty()) << size;
  }
}

}  // namespace
}  // namespace platform
