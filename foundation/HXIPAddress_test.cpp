#include "foundation/HXIPAddress.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::literals;

void expectTrueOf(bool (*rule)(std::string_view), const std::vector<std::string_view>& texts) {
  for (auto text : texts) EXPECT_TRUE(rule(text)) << text;
}
void expectFalseOf(bool (*rule)(std::string_view), const std::vector<std::string_view>& texts) {
  for (auto text : texts) EXPECT_FALSE(rule(text)) << text;
}

TEST(IPAddress, Families) {
  expectTrueOf(isIPv4Address, {"0.0.0.0", "192.0.2.1", "255.255.255.255"});
  expectFalseOf(isIPv4Address, {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", " 1.2.3.4", "1.2.3.4 ", "0x1.2.3.4", "::1",
                                "1.2.3.4\0"sv, "1.2.3.4\0.example"sv});
  expectTrueOf(isIPv6Address, {"::", "::1", "2001:DB8::1", "::ffff:1.2.3.4", "1:2:3:4:5:6:7:8"});
  expectFalseOf(isIPv6Address, {"", "1.2.3.4", "[::1]", "::1%lo", "fe80::1%1", "1::2::3", "12345::", "::1\0x"sv});
  EXPECT_FALSE(isIPv6Address(std::string(100'000, ':')));
  expectTrueOf(isIPAddress, {"1.2.3.4", "::1"});
}

TEST(IPAddress, Ranges) {
  expectTrueOf(isIPv4MappedIPv6Address, {"::ffff:1.2.3.4", "::FFFF:0:0", "0:0:0:0:0:ffff:102:304"});
  expectFalseOf(isIPv4MappedIPv6Address, {"::1.2.3.4", "::fffe:1.2.3.4", "1::ffff:1.2.3.4", "1.2.3.4", ""});
  expectTrueOf(isMulticastIPv4Address, {"224.0.0.0", "239.255.255.255"});
  expectFalseOf(isMulticastIPv4Address, {"223.255.255.255", "240.0.0.0", "0.0.0.224", "ff02::1", ""});
  expectTrueOf(isGUAIPv6Address, {"2000::", "3fff:ffff::1"});
  expectFalseOf(isGUAIPv6Address, {"1fff::", "4000::", "::1", "32.0.0.0", ""});
  expectTrueOf(isULAIPv6Address, {"fc00::", "fdff::1"});
  expectFalseOf(isULAIPv6Address, {"fbff::", "fe00::", "252.0.0.0", ""});
  expectTrueOf(isValidAccessableIPv4Address, {"127.0.0.2", "10.0.0.1", "198.180.0.1", "169.25.4.1", "198.19.0.1"});
  expectFalseOf(isValidAccessableIPv4Address, {"", "0.0.0.1", "127.0.0.1", "169.254.1.1", "198.18.0.1", "::1", "1.2"});
}

TEST(IPAddress, CIDRBlocks) {
  expectTrueOf(isIPCIDRString, {"1.2.3.4/32", "1.2.3.4/0", "1.2.3.4/032", "0.0.0.0/000"});
  expectFalseOf(isIPCIDRString, {"1.2.3.4/33", "1.2.3.4/0032", "1.2.3.4/", "1.2.3.4", "::/0", "/8", "", "1.2.3.4/8/8",
                                 "1.2.3.4/-1", "1.2.3.4/+1", "1.2.3.4/ 8", "1.2.3.4/999"});
}

TEST(IPAddress, NumbersAndBytes) {
  auto stored = IPAddressUsingNetworkByteOrder("1.2.3.4");
  EXPECT_EQ(*reinterpret_cast<const std::uint8_t*>(&stored), 1);
  EXPECT_EQ(IPAddressUsingHostByteOrder("::1"), 0u);
  EXPECT_EQ(IPAddressUsingNetworkByteOrder("1.2.3.4.example"), 0u);
  EXPECT_EQ(stringWithIPAddressUsingNetworkByteOrder(stored), "1.2.3.4");
  EXPECT_EQ(stringWithIPAddressUsingHostByteOrder(0xFFFFFFFF), "255.255.255.255");
  EXPECT_EQ(mappedIPv6AddressToIPv4Address("::ffff:c000:207"), "192.0.2.7");
  EXPECT_FALSE(mappedIPv6AddressToIPv4Address("::192.0.2.7"));
  std::array<std::uint8_t, 16> address{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x2A};
  EXPECT_EQ(stringWithIPv6Address(address), "2001:db8::2a");
  EXPECT_EQ(stringWithIPv6AddressV({}), "::");
}

}  // namespace
