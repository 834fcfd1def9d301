#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <set>

#include "platform/base/file_descriptor.h"
#include "platform/sockets/socket_table.h"

namespace platform {
namespace {

struct Bound {
  FileDescriptor descriptor;
  std::uint16_t port = 0;
};

/// A socket bound to an address and a free port.
Bound bindTo(const char* address, int type, bool onlyIPv6 = false) {
  bool isIPv6 = std::strchr(address, ':') != nullptr;
  Bound bound{FileDescriptor(socket(isIPv6 ? AF_INET6 : AF_INET, type | SOCK_CLOEXEC, 0))};
  sockaddr_storage storage{};
  socklen_t length = isIPv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  storage.ss_family = isIPv6 ? AF_INET6 : AF_INET;
  auto* six = reinterpret_cast<sockaddr_in6*>(&storage);
  auto* four = reinterpret_cast<sockaddr_in*>(&storage);
  EXPECT_EQ(inet_pton(storage.ss_family, address, isIPv6 ? static_cast<void*>(&six->sin6_addr) : &four->sin_addr), 1);
  int on = onlyIPv6;
  if (isIPv6) setsockopt(bound.descriptor.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  EXPECT_EQ(bind(bound.descriptor.get(), reinterpret_cast<sockaddr*>(&storage), length), 0) << address;
  getsockname(bound.descriptor.get(), reinterpret_cast<sockaddr*>(&storage), &length);
  bound.port = ntohs(isIPv6 ? six->sin6_port : four->sin_port);
  return bound;
}

std::vector<SocketEntry> socketsOn(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6 = false) {
  std::vector<SocketEntry> found;
  visitSockets(protocol, port, onlyIPv6, [&](const SocketEntry& entry) {
    found.push_back(entry);
    return true;
  });
  return found;
}

MATCHER_P2(TakesPart, four, six, "") {
  return arg.isIPv4 == four && arg.isIPv6 == six && arg.userID == geteuid();
}

TEST(SocketTable, TellsWhichFamiliesASocketTakesPartIn) {
  auto four = bindTo("127.0.0.1", SOCK_DGRAM);
  auto entries = socketsOn(SocketProtocol::udp, four.port);
  ASSERT_THAT(entries, testing::ElementsAre(TakesPart(true, false)));
  EXPECT_THAT(entries[0].localAddress, testing::ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 127, 0, 0, 1));
  EXPECT_EQ(entries[0].localPort, four.port);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, four.port, true), testing::IsEmpty());
  EXPECT_THAT(socketsOn(SocketProtocol::tcp, four.port), testing::IsEmpty());

  auto both = bindTo("::", SOCK_DGRAM);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, both.port), testing::ElementsAre(TakesPart(true, true)));
  auto six = bindTo("::", SOCK_DGRAM, true);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, six.port), testing::ElementsAre(TakesPart(false, true)));
  auto loopback = bindTo("::1", SOCK_DGRAM);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, loopback.port), testing::ElementsAre(TakesPart(false, true)));
  auto mapped = bindTo("::ffff:127.0.0.1", SOCK_DGRAM);
  EXPECT_THAT(socketsOn(SocketProtocol::udp, mapped.port), testing::ElementsAre(TakesPart(true, false)));
}

TEST(SocketTable, ShowsListenersFirstAndLeavesOutWhatBelongsToNoProcess) {
  auto listener = bindTo("127.0.0.1", SOCK_STREAM);
  ASSERT_EQ(listen(listener.descriptor.get(), 8), 0);
  FileDescriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(listener.port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
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
  client.reset();
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

TEST(SocketTable, AConnectionIsFoundByItsEndsAndThenByOneOfThem) {
  for (bool isIPv6 : {false, true}) {
    auto listener = bindTo(isIPv6 ? "::1" : "127.0.0.1", SOCK_STREAM), client = bindTo("::ffff:127.0.0.1", SOCK_STREAM);
    if (isIPv6) client = bindTo("::1", SOCK_STREAM);
    ASSERT_EQ(listen(listener.descriptor.get(), 8), 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(listener.port);
    inet_pton(AF_INET6, isIPv6 ? "::1" : "::ffff:127.0.0.1", &address.sin6_addr);
    ASSERT_EQ(connect(client.descriptor.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    const auto* bytes = address.sin6_addr.s6_addr;
    const std::span host(bytes + (isIPv6 ? 0 : 12), isIPv6 ? 16u : 4u);
    const SocketEnd near{.address = host, .port = client.port}, far{.address = host, .port = listener.port};
    EXPECT_FALSE(likelySocket(near));  // no connection has led there yet
    auto found = connectedSocket(SocketProtocol::tcp, near, far);
    ASSERT_TRUE(found);
    EXPECT_THAT(*found, TakesPart(!isIPv6, isIPv6));
    EXPECT_EQ(found->identity, socketsOn(SocketProtocol::tcp, client.port).at(0).identity);
    ASSERT_TRUE(likelySocket(near));
    EXPECT_EQ(likelySocket(near)->identity, found->identity);
    EXPECT_FALSE(likelySocket(far)) << "listeners come first";
    EXPECT_FALSE(connectedSocket(SocketProtocol::tcp, far, {.address = host, .port = 1})) << "that one listens";
    EXPECT_FALSE(connectedSocket(SocketProtocol::udp, near, far));
  }

  auto server = bindTo("127.0.0.1", SOCK_DGRAM), sender = bindTo("127.0.0.1", SOCK_DGRAM);
  const std::array<std::uint8_t, 4> host{127, 0, 0, 1};
  const SocketEnd near{.address = host, .port = sender.port}, far{.address = host, .port = server.port};
  EXPECT_FALSE(connectedSocket(SocketProtocol::udp, near, far));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(server.port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(sender.descriptor.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(connectedSocket(SocketProtocol::udp, near, far)->identity,
            socketsOn(SocketProtocol::udp, sender.port).at(0).identity);
}

TEST(SocketOwner, IsOnlyAProcessThatHoldsTheSocketNow) {
  auto bound = bindTo("127.0.0.1", SOCK_DGRAM), other = bindTo("127.0.0.1", SOCK_DGRAM);
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
