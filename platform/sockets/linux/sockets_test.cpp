#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "tests/support/bound_socket.h"

namespace platform {
namespace {

using test::Bound;
using test::SocketAddress;
using test::socketsOn;

MATCHER_P2(TakesPart, four, six, "") {
  return arg.isIPv4 == four && arg.isIPv6 == six && arg.userID == geteuid();
}

TEST(SocketTable, ReportsTheFamiliesOfASocket) {
  const Bound four("127.0.0.1", SOCK_DGRAM);
  auto entries = socketsOn(SocketProtocol::udp, four.port);
  ASSERT_THAT(entries, testing::ElementsAre(TakesPart(true, false)));
  EXPECT_THAT(entries[0].localAddress, testing::ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 127, 0, 0, 1));
  EXPECT_EQ(entries[0].localPort, four.port);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, four.port, true), testing::IsEmpty());
  EXPECT_THAT(socketsOn(SocketProtocol::tcp, four.port), testing::IsEmpty());

  const Bound both("::", SOCK_DGRAM);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, both.port), testing::ElementsAre(TakesPart(true, true)));
  const Bound six("::", SOCK_DGRAM, true);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, six.port), testing::ElementsAre(TakesPart(false, true)));
  const Bound loopback("::1", SOCK_DGRAM);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, loopback.port), testing::ElementsAre(TakesPart(false, true)));
  const Bound mapped("::ffff:127.0.0.1", SOCK_DGRAM);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, mapped.port), testing::ElementsAre(TakesPart(true, false)));
}

TEST(SocketTable, ShowsListenersFirstAndLeavesOutWhatBelongsToNoProcess) {
  const Bound listener("127.0.0.1", SOCK_STREAM);
  ASSERT_EQ(listen(listener.descriptor.get(), 8), 0);
  Bound client("127.0.0.1", SOCK_STREAM);
  client.connectTo({"127.0.0.1", listener.port});
  // Before accept(), the far end has no descriptor and no inode.
  EXPECT_THAT(socketsOn(SocketProtocol::tcp, listener.port), testing::SizeIs(1));
  FileDescriptor accepted(accept4(listener.descriptor.get(), nullptr, nullptr, SOCK_CLOEXEC));
  auto entries = socketsOn(SocketProtocol::tcp, listener.port);
  ASSERT_THAT(entries, testing::SizeIs(2));
  struct stat status;
  ASSERT_EQ(fstat(listener.descriptor.get(), &status), 0);
  EXPECT_EQ(entries[0].identity, status.st_ino);

  int visits = 0;
  visitSockets(SocketProtocol::tcp, listener.port, false, [&](const SocketEntry&) { return ++visits, false; });
  EXPECT_EQ(visits, 1);

  // A closed connection lingers in TIME_WAIT on the side that closed first.
  accepted.reset();
  client.descriptor.reset();
  EXPECT_THAT(socketsOn(SocketProtocol::tcp, listener.port), testing::SizeIs(1));
}

std::vector<std::optional<std::int32_t>> ownersOf(const std::vector<SocketEntry>& sockets) {
  std::vector<std::optional<std::int32_t>> owners(sockets.size());
  findSocketOwners(sockets, [&](std::size_t index, std::int32_t pid) {
    owners[index] = pid;
    return true;
  });
  return owners;
}

TEST(SocketTable, AConnectionIsFoundByBothEndsAndThenByOne) {
  for (bool isIPv6 : {false, true}) {
    const auto* loopback = isIPv6 ? "::1" : "::ffff:127.0.0.1";
    const Bound listener(isIPv6 ? "::1" : "127.0.0.1", SOCK_STREAM), client(loopback, SOCK_STREAM);
    ASSERT_EQ(listen(listener.descriptor.get(), 8), 0);
    const SocketAddress address(loopback, listener.port);
    client.connectTo(address);

    const auto* bytes = address.six.sin6_addr.s6_addr;
    const std::span host(bytes + (isIPv6 ? 0 : 12), isIPv6 ? 16u : 4u);
    const SocketEnd near{.address = host, .port = client.port}, far{.address = host, .port = listener.port};
    EXPECT_FALSE(likelySocket(near));  // no connection has led there yet
    auto found = connectedSocket(SocketProtocol::tcp, near, far);
    ASSERT_TRUE(found);
    EXPECT_THAT(*found, TakesPart(!isIPv6, isIPv6));
    EXPECT_EQ(found->identity, socketsOn(SocketProtocol::tcp, client.port).at(0).identity);
    ASSERT_TRUE(likelySocket(near));
    EXPECT_EQ(likelySocket(near)->identity, found->identity);
    EXPECT_FALSE(likelySocket(far)) << "a listener on the port comes first";
    EXPECT_FALSE(connectedSocket(SocketProtocol::tcp, far, {.address = host, .port = 1}))
        << "the only socket on that port listens";
    EXPECT_FALSE(connectedSocket(SocketProtocol::udp, near, far));
  }

  const Bound server("127.0.0.1", SOCK_DGRAM), sender("127.0.0.1", SOCK_DGRAM);
  const std::array<std::uint8_t, 4> host{127, 0, 0, 1};
  const SocketEnd near{.address = host, .port = sender.port}, far{.address = host, .port = server.port};
  EXPECT_FALSE(connectedSocket(SocketProtocol::udp, near, far));
  sender.connectTo({"127.0.0.1", server.port});
  EXPECT_EQ(connectedSocket(SocketProtocol::udp, near, far)->identity,
            socketsOn(SocketProtocol::udp, sender.port).at(0).identity);
}

TEST(SocketOwner, IsOnlyAProcessThatHoldsTheSocketNow) {
  Bound bound("127.0.0.1", SOCK_DGRAM), other("127.0.0.1", SOCK_DGRAM);
  auto entry = socketsOn(SocketProtocol::udp, bound.port).at(0);
  EXPECT_EQ(likelySocketOwner(entry), std::nullopt);  // nothing has been found yet
  EXPECT_THAT(ownersOf({entry, socketsOn(SocketProtocol::udp, other.port).at(0), entry}), testing::Each(getpid()));

  int stay[2];
  ASSERT_EQ(pipe(stay), 0);
  pid_t child = fork();
  if (child == 0) {
    close(stay[1]);
    char byte;
    _exit(static_cast<int>(read(stay[0], &byte, 1)));
  }
  close(stay[0]);
  EXPECT_TRUE(holdsSocket(getpid(), entry) && holdsSocket(child, entry));
  std::set<std::int32_t> offered;
  findSocketOwners({&entry, 1}, [&](std::size_t, std::int32_t pid) { return offered.insert(pid).first, false; });
  EXPECT_THAT(offered, testing::UnorderedElementsAre(getpid(), child));
  bound.descriptor.reset();  // this process was found before, but no longer holds it
  EXPECT_FALSE(holdsSocket(getpid(), entry));
  EXPECT_THAT(ownersOf({entry}), testing::ElementsAre(child));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(stay[1]);
  EXPECT_THAT(ownersOf({entry}), testing::ElementsAre(std::nullopt));
}

}  // namespace
}  // namespace platform
