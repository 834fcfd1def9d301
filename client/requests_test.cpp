// Tests the messages that requests send.
#include <brimo/requests.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "client/message.h"

namespace brimo {
namespace {

using platform::ipc::Data;
using platform::ipc::Dictionary;

Data padded(std::initializer_list<std::uint8_t> bytes) {
  Data data(128);
  std::copy(bytes.begin(), bytes.end(), data.begin());
  return data;
}

TEST(Requests, CarryAddressesInTheBSDLayout) {
  auto local = *parseSocketAddress("192.0.2.1:258");
  auto remote = *parseSocketAddress("[fe80::a%lo]:65535");
  const Dictionary expected{
      {"command", "process-lookup"},
      {"udp", true},
      {"address", padded({16, 2, 1, 2, 192, 0, 2, 1})},
      {"remote", padded({28, 30, 255, 255, 0, 0, 0, 0, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 1})}};
  EXPECT_EQ(processLookup(Transport::udp, local, remote).message()->dictionary, expected);

  sockaddr_in6 system{};
  system.sin6_family = AF_INET6;
  system.sin6_port = htons(258);
  system.sin6_addr.s6_addr[15] = 1;
  auto address = socketAddress(reinterpret_cast<const sockaddr*>(&system));
  EXPECT_EQ(
      *processLookup(Transport::tcp, *address).message()->dictionary.get<Data>("address"),
      *processLookup(Transport::tcp, *parseSocketAddress("[::1]:258")).message()->dictionary.get<Data>("address"));
  system.sin6_family = AF_UNIX;
  EXPECT_FALSE(socketAddress(reinterpret_cast<const sockaddr*>(&system)));

  for (const char* wrong : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:1x", "::1:80", "[::1]", "[]:1",
                            "localhost:80", "[127.0.0.1]:80", "[fe80::1%nothing]:80", "127.0.0.1%lo:80"}) {
    EXPECT_FALSE(parseSocketAddress(wrong)) << wrong;
  }
}

TEST(Requests, ProxiesMayStayForAll) {
  const auto json = *setProxies({}, ProxyLifetime::permanentForAll).message()->dictionary.get<Data>("json");
  EXPECT_EQ(std::string(json.begin(), json.end()), R"({"command":"set-proxy","payload":{},"cleanup":true})");
}

}  // namespace
}  // namespace brimo
