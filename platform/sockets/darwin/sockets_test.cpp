// Tests the kernel's tables and sockets on the loopback interface.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>

#include "platform/sockets/interface_socket.h"
#include "tests/support/bound_socket.h"
#include "tests/support/eventually.h"

namespace platform {
namespace {

using test::Bound;
using test::SocketAddress;
using test::socketsOn;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Sockets, TheTablesShowTheSocketsOfThisProcess) {
  for (auto [type, protocol] :
       {std::pair(SOCK_DGRAM, SocketProtocol::udp), std::pair(SOCK_STREAM, SocketProtocol::tcp)}) {
    Bound first("127.0.0.1", type), second("127.0.0.1", type);
    for (const auto& bound : {&first, &second}) {
      auto entries = socketsOn(protocol, bound->port);
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_TRUE(entries[0].isIPv4);
      EXPECT_FALSE(entries[0].isIPv6);
      EXPECT_THAT(std::span(entries[0].localAddress).last(4), ElementsAre(127, 0, 0, 1));
      EXPECT_EQ(likelySocketOwner(entries[0]), getpid());
    }
    const auto port = first.port;
    first.descriptor.reset();
    EXPECT_THAT(socketsOn(protocol, port), IsEmpty());
  }
}

TEST(Sockets, InterfacesAreBoundToByName) {
  for (int family : {AF_INET, AF_INET6}) {
    auto socket = openSocket(family, SOCK_DGRAM, IPPROTO_UDP).value();
    EXPECT_TRUE(bindToInterface(socket.get(), "lo0"));
    int index = 0;
    socklen_t length = sizeof index;
    const bool isIPv6 = family == AF_INET6;
    EXPECT_EQ(getsockopt(socket.get(), isIPv6 ? IPPROTO_IPV6 : IPPROTO_IP, isIPv6 ? IPV6_BOUND_IF : IP_BOUND_IF, &index,
                         &length),
              0);
    EXPECT_NE(index, 0);
    EXPECT_FALSE(bindToInterface(socket.get(), "no-such-if"));
  }
  EXPECT_FALSE(bindToInterface(-1, "lo0"));
  EXPECT_THAT(linkLayerAddress("lo0").value(), IsEmpty());
  EXPECT_THAT(linkLayerAddress("no-such-if").value(), IsEmpty());
}

TEST(Sockets, DatagramsAreTakenWithoutWaitingAndCutToTheBuffer) {
  Bound sender("127.0.0.1", SOCK_DGRAM), bound("127.0.0.1", SOCK_DGRAM);
  auto receiver = openDatagramReceiver(bound.descriptor.get(), "lo0", bound.port).value();
  std::array<std::uint8_t, 4> buffer{};
  EXPECT_EQ(receiveDatagram(receiver.get(), buffer).error().number, EAGAIN);

  const SocketAddress destination("127.0.0.1", bound.port);
  ASSERT_EQ(sendto(sender.descriptor.get(), "offer", 5, 0, &destination.any, destination.length), 5);
  Result<ReceivedDatagram> received;
  ASSERT_TRUE(eventually([&] { return (received = receiveDatagram(receiver.get(), buffer)).has_value(); }));
  EXPECT_EQ(received->length, 4u);
  EXPECT_THAT(received->source, ElementsAre(127, 0, 0, 1));
  EXPECT_THAT(buffer, ElementsAre('o', 'f', 'f', 'e'));
}

TEST(Sockets, APortInUseIsNotBoundAgain) {
  auto first = openSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP).value(),
       second = openSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP).value();
  ASSERT_TRUE(allowReuseOfPort(first.get()));
  ASSERT_TRUE(allowReuseOfPort(second.get()));
  ASSERT_TRUE(bindToPort(first.get(), 0));
  SocketAddress address("0.0.0.0", 0);
  ASSERT_EQ(getsockname(first.get(), &address.any, &address.length), 0);
  EXPECT_EQ(bindToPort(second.get(), ntohs(address.four.sin_port)).error().number, EADDRINUSE);
}

}  // namespace
}  // namespace platform
