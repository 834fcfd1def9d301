#include "helper/probes/BRSockAddrObject.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <cstring>
#include <unordered_set>

#include "tests/support/this_machine.h"

namespace {

BRSockAddrObject four(std::array<std::uint8_t, 4> address, std::uint16_t port) {
  return BRSockAddrObject::objectWithAddr(BRSockAddrMakeIPv4(address, port));
}

BRSockAddrObject six(std::uint8_t first, std::uint8_t last, std::uint16_t port) {
  return BRSockAddrObject::objectWithAddr(
      BRSockAddrMakeIPv6({first, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last}, port));
}

TEST(BRSockAddrObject, HasTheLayoutOfMessages) {
  auto address = BRSockAddrMakeIPv4({192, 0, 2, 1}, 0x1234);
  EXPECT_EQ(address, (BRSockAddr{16, 2, 0x12, 0x34, 192, 0, 2, 1}));
  auto wide = BRSockAddrMakeIPv6({0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}, 1);
  BRSockAddr expected{28, 30, 0, 1, 0, 0, 0, 0, 0xFE, 0x80};
  expected[23] = 9;
  EXPECT_EQ(wide, expected);
}

TEST(BRSockAddrObject, EqualityComparesTheBytesThatTheLengthCovers) {
  auto left = BRSockAddrMakeIPv4({1, 2, 3, 4}, 80), right = left;
  auto areEqual = [&] { return BRSockAddrObject::objectWithAddr(left) == BRSockAddrObject::objectWithAddr(right); };
  right[16] = 9;  // beyond the length
  EXPECT_TRUE(areEqual());
  right[15] = 9;
  EXPECT_FALSE(areEqual());
  left.fill(7), right.fill(7);
  left[0] = right[0] = 255;
  EXPECT_TRUE(areEqual());
  right[0] = 254;
  EXPECT_FALSE(areEqual());
  left[0] = right[0] = 0;
  right[5] = 0;
  EXPECT_TRUE(areEqual());
  EXPECT_TRUE(BRSockAddrObject::objectWithAddr(left).isEqual(nullptr));
  right[0] = 1;
  EXPECT_FALSE(areEqual());
  EXPECT_FALSE(four({1, 2, 3, 4}, 80).isEqual(nullptr));
}

TEST(BRSockAddrObject, HashAndIgnoredPortServeAsKey) {
  EXPECT_EQ(four({1, 2, 3, 4}, 80).hash(), four({1, 2, 3, 4}, 81).hash());
  auto words = BRSockAddrMakeIPv6({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 255, 255, 255, 255}, 5);
  std::uint32_t expected = 0, word;
  for (auto offset : {8u, 12u, 16u, 20u}) {
    std::memcpy(&word, words.data() + offset, 4);
    expected += word;
  }
  EXPECT_EQ(BRSockAddrObject::objectWithAddr(words).hash(), expected);
  EXPECT_EQ(BRSockAddrObject::objectWithAddr({16, 99, 1, 2, 3, 4}).hash(), 0u);

  const auto withoutPort = BRSockAddrObject::objectWithAddrIgnorePort(BRSockAddrMakeIPv4({1, 2, 3, 4}, 80));
  EXPECT_TRUE(std::unordered_set({four({1, 2, 3, 4}, 0)}).contains(withoutPort));
  BRSockAddr other{16, 99, 1, 2};
  EXPECT_EQ(BRSockAddrObject::objectWithAddrIgnorePort(other).addr(), other);
}

TEST(BRSockAddrObject, OrdersByFamilyAddressAndPort) {
  EXPECT_LT(four({255, 0, 0, 0}, 9), six(0, 0, 1));
  EXPECT_LT(four({9, 255, 255, 255}, 9), four({10, 0, 0, 0}, 1));
  EXPECT_LT(four({10, 0, 0, 0}, 255), four({10, 0, 0, 0}, 256));
  EXPECT_LT(six(1, 255, 9), six(2, 0, 1));
  EXPECT_LT(six(1, 1, 1), six(1, 1, 2));
  EXPECT_TRUE(six(1, 1, 1).compare(nullptr) > 0);
  EXPECT_TRUE(BRSockAddrObject::objectWithAddr({16, 99, 1}).compare(BRSockAddrObject::objectWithAddr({16, 99, 2})) ==
              0);
}

TEST(BRSockAddrObject, Text) {
  EXPECT_EQ(four({192, 0, 2, 1}, 0).description(), "192.0.2.1");
  EXPECT_EQ(four({192, 0, 2, 1}, 65535).description(), "192.0.2.1:65535");
  EXPECT_EQ(six(0xFE, 1, 0).description(), "fe00::1");
  EXPECT_EQ(six(0xFE, 1, 80).description(), "[fe00::1]:80");
  EXPECT_EQ(BRSockAddrText(BRSockAddrMakeIPv4({1, 2, 3, 4}, 0), true), "1.2.3.4:0");
  EXPECT_EQ(BRSockAddrText({16, 99}, true), "");
  auto scoped = BRSockAddrMakeIPv6({0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 80);
  auto loopback = loopbackInterface();
  std::uint32_t index = if_nametoindex(loopback.c_str());
  std::memcpy(scoped.data() + 24, &index, sizeof index);
  EXPECT_EQ(BRSockAddrText(scoped, true), "[fe80::1%" + loopback + "]:80");
  index = 0x7FFFFFFF;
  std::memcpy(scoped.data() + 24, &index, sizeof index);
  EXPECT_EQ(BRSockAddrText(scoped, false), "fe80::1");
}

}  // namespace
