// Tests an advertisement with all options, and malformed and truncated advertisements.
#include "client/router_advertisement.h"

#include <gmock/gmock.h>

#include <boost/json.hpp>

#include "cli/router_advertisement_text.h"

namespace brimo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;

/// fe80::1 in the BSD layout.
const Bytes router = [] {
  Bytes address(28);
  address[0] = 28;
  address[1] = 30;
  address[8] = 0xFE;
  address[9] = 0x80;
  address[23] = 1;
  return address;
}();

const Bytes header{134, 0, 0x12, 0x34, 64, 0x40, 0x07, 0x08, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes linkLayer{1, 1, 0x02, 0x42, 0xAC, 0x11, 0x00, 0x0A};
const Bytes prefix{3,    4,    64,   0xC0, 0, 0, 0x0E, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0,
                   0x20, 0x01, 0x0D, 0xB8, 0, 1, 0,    0,    0,    0,    0,    0,    0, 0, 0, 0};
const Bytes mtu{5, 1, 0, 0, 0, 0, 0x05, 0xDC};
const Bytes dnsServers{25, 5, 0, 0,    0,    0,    0, 60, 0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0,
                       0,  0, 0, 0x53, 0xFE, 0x80, 0, 0,  0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0x53};
const Bytes searchDomains{31,  4,   0,   0,   0, 0, 0,   60,   3, 'l', 'a', 'b', 7,   'e', 'x', 'a',
                          'm', 'p', 'l', 'e', 0, 2, 'n', 0x1B, 0, 3,   'n', 'e', 't', 0,   0,   0};
const Bytes unknown{200, 2, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes whole;
  for (const auto& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

TEST(RouterAdvertisement, DecodesEveryOption) {
  auto decoded =
      decodeRouterAdvertisement(join({header, linkLayer, unknown, prefix, mtu, dnsServers, searchDomains}), router);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(boost::json::serialize(routerObject(*decoded)),
            R"({"router":"fe80::1","lifetime":1800,"hop-limit":64,"managed":false,"other-configuration":true,)"
            R"("prefixes":[{"prefix":"2001:db8:1::/64","on-link":true,"autonomous":true,"valid-lifetime":3600,)"
            R"("preferred-lifetime":4294967295}],"dns-servers":["2001:db8::53","fe80::53"],)"
            R"("search-domains":["lab.example","net"],"link-layer-address":"02:42:ac:11:00:0a","mtu":1500})");
  EXPECT_EQ(routerText(*decoded),
            "router fe80::1\n"
            "  lifetime          1800 s\n"
            "  hardware address  02:42:ac:11:00:0a\n"
            "  hop limit         64\n"
            "  other settings    by DHCPv6\n"
            "  prefix            2001:db8:1::/64, on link, autonomous, valid 3600 s, preferred for ever\n"
            "  MTU               1500\n"
            "  DNS servers       2001:db8::53 fe80::53\n"
            "  search domains    lab.example net");
}

TEST(RouterAdvertisement, MalformedAdvertisementsAreNotDecoded) {
  for (std::size_t size = 0; size < header.size(); ++size) {
    EXPECT_FALSE(decodeRouterAdvertisement(std::span(header).first(size), router));
  }
  EXPECT_FALSE(decodeRouterAdvertisement(header, std::span(router).first(27)));
  auto other = header;
  other[0] = 133;
  EXPECT_FALSE(decodeRouterAdvertisement(other, router));
  for (const auto& option : {linkLayer, prefix, mtu, dnsServers, searchDomains, unknown}) {
    auto whole = join({header, option});
    EXPECT_TRUE(decodeRouterAdvertisement(whole, router));
    for (std::size_t size = header.size() + 1; size < whole.size(); ++size) {
      EXPECT_FALSE(decodeRouterAdvertisement(std::span(whole).first(size), router));
    }
  }
  EXPECT_FALSE(decodeRouterAdvertisement(join({header, {1, 0, 0, 0, 0, 0, 0, 0}}), router));  // length 0
  EXPECT_FALSE(
      decodeRouterAdvertisement(join({header, {3, 1, 64, 0, 0, 0, 0, 0}}), router));  // too short for a prefix option
}

TEST(RouterAdvertisement, TruncatedListsKeepTheirCompleteEntries) {
  auto servers = Bytes(dnsServers.begin(), dnsServers.begin() + 32);
  servers[1] = 4;
  EXPECT_THAT(decodeRouterAdvertisement(join({header, servers}), router)->dnsServers, ElementsAre("2001:db8::53"));
  Bytes domains{31, 3, 0, 0, 0, 0, 0, 60, 1, 'a', 0, 1, 'b', 0, 1, 'c', 0, 9, 'd', 'e', 'f', 'g', 'h', 'i'};
  EXPECT_THAT(decodeRouterAdvertisement(join({header, domains}), router)->searchDomains, ElementsAre("a", "b", "c"));
  EXPECT_THAT(decodeRouterAdvertisement(join({header, {31, 1, 0, 0, 0, 0, 0, 0}}), router)->searchDomains, IsEmpty());
}

}  // namespace
}  // namespace brimo
