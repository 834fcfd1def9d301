#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "platform/sockets/linux/known_owners.h"
#include "tests/support/bound_socket.h"
#include "tests/support/this_machine.h"

namespace platform {
namespace {

using test::Bound;
using test::SocketAddress;
using test::socketsOn;

TEST(SocketTable, ReportsTheAddressAndTheUserOfASocket) {
  struct Case {
    std::string address;
    bool onlyIPv6, isIPv4, isIPv6;
    std::string reported;
  };
  for (const auto& [address, onlyIPv6, isIPv4, isIPv6, reported] :
       {Case{"127.0.0.1", false, true, false, "::127.0.0.1"}, Case{"::", false, true, true, "::"},
        Case{"::", true, false, true, "::"}, Case{"::1", false, false, true, "::1"},
        Case{"::ffff:127.0.0.1", false, true, false, "::ffff:127.0.0.1"}}) {
    const Bound bound(address, SOCK_DGRAM, onlyIPv6);
    ASSERT_EQ(fchown(bound.descriptor.get(), 1001, 1001), 0);
    auto entries = socketsOn(SocketProtocol::udp, bound.port);
    ASSERT_THAT(entries, testing::SizeIs(1)) << address;
    EXPECT_TRUE(entries[0].isIPv4 == isIPv4 && entries[0].isIPv6 == isIPv6) << address;
    EXPECT_THAT(entries[0].localAddress, testing::ElementsAreArray(SocketAddress(reported, 0).six.sin6_addr.s6_addr));
    EXPECT_EQ(entries[0].localPort, bound.port);
    EXPECT_EQ(entries[0].userID, 1001u);
    EXPECT_EQ(socketsOn(SocketProtocol::udp, bound.port, true).size(), reported == address ? 1u : 0u) << address;
    EXPECT_THAT(socketsOn(SocketProtocol::tcp, bound.port), testing::IsEmpty());
  }
}

TEST(SocketTable, ShowsListenersFirstAndLeavesOutWhatBelongsToNoProcess) {
  const Bound listener("127.0.0.1", SOCK_STREAM), onAnotherPort("127.0.0.1", SOCK_STREAM);
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

TEST(SocketTable, AConnectionIsFoundByBothEnds) {
  struct Case {
    int type;
    std::string server, client, target;
  };
  for (const auto& [type, server, user, target] :
       {Case{SOCK_STREAM, "127.0.0.1", "::ffff:127.0.0.2", "::ffff:127.0.0.1"}, Case{SOCK_STREAM, "::1", "::1", "::1"},
        Case{SOCK_DGRAM, "127.0.0.1", "127.0.0.2", "127.0.0.1"}}) {
    const bool isTCP = type == SOCK_STREAM, isIPv6 = server == "::1";
    const auto protocol = isTCP ? SocketProtocol::tcp : SocketProtocol::udp;
    const Bound listener(server, type), client(user, type);
    const auto near = client.end(), far = listener.end();
    ASSERT_EQ(listen(listener.descriptor.get(), 8), isTCP ? 0 : -1);
    EXPECT_FALSE(connectedSocket(protocol, near, far));
    client.connectTo({target, listener.port});
    auto found = connectedSocket(protocol, near, far);
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->isIPv4 != isIPv6 && found->isIPv6 == isIPv6);
    EXPECT_EQ(found->identity, socketsOn(protocol, client.port).at(0).identity);
    EXPECT_FALSE(connectedSocket(isTCP ? SocketProtocol::udp : SocketProtocol::tcp, near, far));
    EXPECT_FALSE(connectedSocket(protocol, far, {.address = far.address, .port = 1})) << "connected to nothing";
    EXPECT_FALSE(connectedSocket(protocol, far, near)) << "no process has accepted it";
    EXPECT_EQ(likelySocket(near).has_value(), isTCP);
    EXPECT_FALSE(likelySocket(far)) << "a listener on the port comes first";
  }
}

/// A socket with a chosen descriptor number, and its entry.
std::pair<FileDescriptor, SocketEntry> socketAt(int number) {
  FileDescriptor held(dup3(FileDescriptor(socket(AF_UNIX, SOCK_STREAM, 0)).get(), number, O_CLOEXEC));
  struct stat status {};
  EXPECT_EQ(fstat(number, &status), 0);
  return {std::move(held), SocketEntry{.identity = status.st_ino}};
}

/// A process of a user that holds the same descriptors as this one.
struct Child {
  explicit Child(uid_t user) {
    EXPECT_EQ(seteuid(user), 0);
    prctl(PR_SET_DUMPABLE, 1);  // otherwise the files of the process in /proc would be root's
    pid = fork();
    if (pid == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (pid == 0) pause();
    EXPECT_EQ(seteuid(0), 0);
    if (pid < 0) throw std::runtime_error("fork");
  }
  ~Child() {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  pid_t pid;
};

/// A process that is known through a socket of a control group, and in which no descriptor was looked at.
std::shared_ptr<KnownProcess> know(std::int32_t pid, std::uint64_t group) {
  knownOwners().forget(pid);
  knownOwners().noteOwner(pid, {.controlGroup = group});
  return knownOwners().processes({group}, true).front();
}

std::vector<std::optional<std::int32_t>> ownersOf(const std::vector<SocketEntry>& sockets) {
  std::vector<std::optional<std::int32_t>> owners(sockets.size());
  findSocketOwners(sockets, [&](std::size_t index, std::int32_t pid) {
    owners[index] = pid;
    return true;
  });
  return owners;
}

TEST(KnownOwners, AreTheLatest) {
  KnownOwners owners;
  for (int pid = 1; pid <= 34; ++pid) owners.noteOwner(pid, {.controlGroup = pid < 5});
  owners.noteOwner(33, {.controlGroup = 1});
  owners.forget(4);
  const auto inGroup = owners.processes({1}, true), others = owners.processes({1}, false);
  ASSERT_EQ(inGroup.size(), 2u);  // 1 and 2 were too long ago
  ASSERT_EQ(others.size(), 29u);
  EXPECT_THAT((std::array{inGroup[0]->pid, inGroup[1]->pid, others[0]->pid}), testing::ElementsAre(33, 3, 34));

  for (Inode inode = 1; inode <= 16'384; ++inode) owners.notePlace(inode, {.pid = 1, .descriptor = 2});
  EXPECT_EQ(owners.place(1)->descriptor, 2);
  owners.notePlace(20'000, {.pid = 1, .descriptor = 3});  // begins anew
  EXPECT_FALSE(owners.place(1));
  EXPECT_EQ(owners.place(20'000)->descriptor, 3);

  for (std::size_t number : {16'383, 16'384}) others[0]->note(number, 7);
  EXPECT_EQ(others[0]->before(16'382), notSeen);
  EXPECT_EQ(others[0]->before(16'383), 7u);
  EXPECT_EQ(others[0]->before(16'384), notSeen);
}

// This process and a child of user 1001 hold the socket that is sought. Two other sockets show at which stage it is
// found, because the stages before that have looked at them or have not: descriptor 400 is new; descriptor 199 and all
// lower ones are recorded as no sockets.
TEST(SocketOwner, IsSoughtFirstWhereItIsLikely) {
  constexpr int unknown = -1;
  const auto descriptors = openDescriptors();
  struct Search {
    std::string found;
    int number;
    Inode before;             // what the descriptor is recorded as; those from 200 up to it are recorded as sockets
    int group, groupOfChild;  // the control groups in which the processes are known; the socket's is 1
    std::uint32_t user;
  };
  for (const auto& search :
       {Search{"parent", 263, 1, 1, unknown, 1001},  // the last of the 64 sockets that are guessed without a listing
        Search{"parent new", 264, 1, 1, 0, 1001}, Search{"parent new", 264, 1, 0, unknown, 1001},
        Search{"parent new old", 264, noSocket, 0, unknown, 1001}, Search{"child old", 264, 1, unknown, unknown, 1001},
        Search{"parent old", 264, 1, unknown, unknown, 0}}) {
    auto [held, sought] = socketAt(search.number);
    const auto [heldOld, old] = socketAt(199);
    const auto [heldNew, added] = socketAt(400);
    const Child child(1001);
    auto parent = know(getpid(), search.group == 1);
    for (int number = 0; number < search.number; ++number) parent->note(number, number < 200 ? noSocket : 1);
    parent->note(search.number, search.before);
    if (search.group == unknown) knownOwners().forget(getpid());
    if (search.groupOfChild != unknown) know(child.pid, search.groupOfChild);
    sought.controlGroup = 1;
    sought.userID = search.user;
    const auto owner = ownersOf({sought}).at(0);
    std::string found = owner == getpid() ? "parent" : owner == child.pid ? "child" : "";
    if (knownOwners().place(added.identity)) found += " new";
    if (knownOwners().place(old.identity)) found += " old";
    EXPECT_EQ(found, search.found);
    EXPECT_EQ(knownOwners().processes({1}, true).front()->pid, owner);
    EXPECT_EQ(parent->before(search.number), search.group == unknown ? 1 : sought.identity);
  }
  EXPECT_FALSE(knownOwners().place(noSocket) || knownOwners().place(notSeen));
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(SocketOwner, IsOnlyAProcessThatHoldsTheSocketNow) {
  Bound bound("127.0.0.1", SOCK_DGRAM), other("127.0.0.1", SOCK_DGRAM);
  auto entry = socketsOn(SocketProtocol::udp, bound.port).at(0);
  entry.controlGroup = 0;  // this process may be in a small one, in which it would be found at once
  knownOwners().forget(getpid());
  EXPECT_EQ(likelySocketOwner(entry), std::nullopt);
  EXPECT_THAT(ownersOf({entry, socketsOn(SocketProtocol::udp, other.port).at(0), entry}), testing::Each(getpid()));

  std::optional<Child> child(0);
  const auto pid = child->pid;
  knownOwners().forget(getpid());
  EXPECT_THAT(ownersOf({entry}), testing::ElementsAre(getpid()));  // where it was seen
  EXPECT_TRUE(holdsSocket(getpid(), entry) && holdsSocket(pid, entry));
  EXPECT_TRUE(seemsToHoldSocket(getpid(), entry) && !seemsToHoldSocket(pid, entry));
  std::vector<std::int32_t> offered;
  entry.userID = 1001;  // so that these processes are searched last, the newest first
  findSocketOwners({&entry, 1}, [&](std::size_t, std::int32_t next) { return offered.push_back(next), false; });
  ASSERT_GE(offered.size(), 2u);
  EXPECT_THAT(std::span(offered).last(2), testing::ElementsAre(std::max(getpid(), pid), std::min(getpid(), pid)));
  bound.descriptor.reset();  // this process was found before, but no longer holds it
  EXPECT_FALSE(holdsSocket(getpid(), entry));
  EXPECT_THAT(ownersOf({entry}), testing::ElementsAre(pid));
  child.reset();
  EXPECT_THAT(ownersOf({entry}), testing::ElementsAre(std::nullopt));
  for (const auto& process : knownOwners().processes({0}, true)) EXPECT_NE(process->pid, pid);
}

}  // namespace
}  // namespace platform
