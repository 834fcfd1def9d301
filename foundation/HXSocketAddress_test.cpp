#include "foundation/HXSocketAddress.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <algorithm>
#include <vector>

namespace {

template <class Address>
std::vector<std::uint8_t> bytesOf(const Address& address, std::size_t size = sizeof(Address)) {
  std::vector<std::uint8_t> bytes(size);
  std::copy_n(reinterpret_cast<const std::uint8_t*>(&address), std::min(size, sizeof address), bytes.begin());
  return bytes;
}

TEST(SocketAddressData, MustHaveTheSizeOfItsFamily) {
  sockaddr_in four{};
  four.sin_family = AF_INET;
  four.sin_addr.s_addr = htonl(0xC0000207);
  sockaddr_in6 six{};
  six.sin6_family = AF_INET6;
  six.sin6_addr = in6addr_loopback;
  sockaddr other{};

  EXPECT_EQ(stringWithIPAddressFromSockaddr(reinterpret_cast<sockaddr*>(&four)), "192.0.2.7");
  EXPECT_EQ(stringWithIPAddressFromSockaddr(reinterpret_cast<sockaddr*>(&six)), "::1");
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(&other));
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(nullptr));
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(reinterpret_cast<sockaddr*>(&six), sizeof four));

  EXPECT_EQ(stringWithIPAddressFromSockaddrData(bytesOf(four)), "192.0.2.7");
  // The data may begin at an odd address. Its heap block ends with it, so AddressSanitizer reports a read beyond its
  // end.
  auto shifted = bytesOf(six);
  shifted.insert(shifted.begin(), 0);
  EXPECT_EQ(stringWithIPAddressFromSockaddrData(std::span(shifted).subspan(1)), "::1");
  for (std::size_t size : std::vector<std::size_t>{0, 1, 15, 17, 28})
    EXPECT_FALSE(stringWithIPAddressFromSockaddrData(bytesOf(four, size))) << size;
  EXPECT_FALSE(stringWithIPAddressFromSockaddrData(bytesOf(six, 16)));
}

}  // namespace
