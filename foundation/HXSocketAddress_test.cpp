#include "foundation/HXSocketAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

namespace {

TEST(SocketAddressText, TheSizeDecidesWhichFamilyIsExpected) {
  sockaddr_in four{};
  four.sin_family = AF_INET;
  inet_pton(AF_INET, "192.0.2.7", &four.sin_addr);
  sockaddr_in6 six{};
  six.sin6_family = AF_INET6;
  inet_pton(AF_INET6, "2001:db8::7", &six.sin6_addr);
  const auto* fourAddress = reinterpret_cast<const sockaddr*>(&four);
  const auto* sixAddress = reinterpret_cast<const sockaddr*>(&six);

  EXPECT_EQ(stringWithIPAddressFromSockaddr(fourAddress, 16), "192.0.2.7");
  EXPECT_EQ(stringWithIPAddressFromSockaddr(sixAddress, 28), "2001:db8::7");
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(sixAddress, 16));
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(sixAddress, 20));
  six.sin6_family = AF_INET;
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(sixAddress, 28));
  EXPECT_FALSE(stringWithIPAddressFromSockaddr(nullptr, 16));
}

}  // namespace
