#include "helper/probes/socket_owner_lookup.h"

#include <gmock/gmock.h>

#include <vector>

#include "platform/fake/dispatch.h"
#include "platform/fake/machine.h"

namespace {

using platform::SocketEntry;
using platform::SocketProtocol;
using platform::fake::machine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<std::uint8_t, 16> any{};
constexpr std::array<std::uint8_t, 16> v4Local{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 127, 0, 0, 1};
constexpr std::array<std::uint8_t, 16> v6Local{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr std::array<std::uint8_t, 16> v6Other{0x20, 1, 0xD, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

const BRSockAddr askAny4 = BRSockAddrMakeIPv4({0, 0, 0, 0}, 80), askLocal4 = BRSockAddrMakeIPv4({127, 0, 0, 1}, 80);
const BRSockAddr askOther4 = BRSockAddrMakeIPv4({192, 0, 2, 1}, 80);
const BRSockAddr askAny6 = BRSockAddrMakeIPv6(any, 80), askLocal6 = BRSockAddrMakeIPv6(v6Local, 80);

class SocketOwnerLookupTest : public testing::Test {
 protected:
  SocketOwnerLookupTest() { machine() = {}; }

  /// Adds a socket owned by process `pid`, or by no process if `pid` is 0.
  void add(std::uint16_t port, bool isIPv4, bool isIPv6, std::array<std::uint8_t, 16> address, std::int32_t pid) {
    auto identity = machine().sockets.size();
    machine().sockets.emplace_back(SocketProtocol::tcp, SocketEntry{port, isIPv4, isIPv6, address, identity});
    if (pid != 0) machine().owners[identity] = pid;
    machine().executables[pid] = "/bin/owner";
  }

  std::int32_t owner(const BRSockAddr& query) {
    auto found = BRTCPSocketOwner(query);
    return found ? found->pid : 0;
  }
};

TEST_F(SocketOwnerLookupTest, UnspecifiedAddressesMatchAny) {
  add(80, true, false, v4Local, 1);
  EXPECT_EQ(owner(askLocal4), 1);
  EXPECT_EQ(owner(askAny4), 1);
  EXPECT_EQ(owner(askOther4), 0);
  EXPECT_EQ(owner(askAny6), 0);
  EXPECT_EQ(owner(BRSockAddrMakeIPv4({127, 0, 0, 1}, 81)), 0);
  EXPECT_FALSE(BRUDPSocketOwner(askLocal4));

  machine() = {};
  add(80, true, false, any, 2);
  EXPECT_EQ(owner(askOther4), 2);
}

TEST_F(SocketOwnerLookupTest, FamiliesKeepApart) {
  add(80, false, true, any, 1);
  EXPECT_EQ(owner(askAny4), 0);
  EXPECT_EQ(owner(askLocal6), 1);
  EXPECT_EQ(owner(askAny6), 1);

  machine() = {};
  add(80, true, true, any, 2);  // dual-stack
  EXPECT_EQ(owner(askLocal4), 2);
  EXPECT_EQ(owner(askLocal6), 2);

  machine() = {};
  add(80, false, true, v6Other, 3);
  EXPECT_EQ(owner(askLocal6), 0);
  EXPECT_EQ(owner(askAny6), 3);
  auto unknown = askAny4;
  unknown[1] = 10;  // AF_INET6 on another system
  EXPECT_EQ(owner(unknown), 0);
}

TEST_F(SocketOwnerLookupTest, TheFirstMatchEndsTheSearch) {
  add(81, true, false, any, 1);  // the kernel's filter can let such a socket through
  add(80, true, false, v4Local, 0);
  add(80, true, false, any, 3);
  EXPECT_EQ(owner(askLocal4), 0);
  // The socket exists, so its owner may have changed during the pass. The search repeats, but not for ever.
  EXPECT_THAT(machine().passes, testing::AllOf(testing::SizeIs(5), testing::Each(ElementsAre(1))));
  EXPECT_EQ(owner(askOther4), 3);
}

TEST_F(SocketOwnerLookupTest, OnlyATCPSocketOfOneAddressIsGuessed) {
  for (auto* address : {&v4Local, &v6Local}) add(80, address == &v4Local, address == &v6Local, *address, 1);
  auto guess = [](bool isIPv4, const std::array<std::uint8_t, 16>& address) {
    machine().likelySocket = SocketEntry{80, isIPv4, !isIPv4, address, 9};
  };
  machine().owners[9] = 2;
  machine().executables[2] = "/bin/guessed";
  guess(true, v4Local);
  EXPECT_EQ(owner(askLocal4), 2);
  EXPECT_EQ(owner(askAny4), 1);
  EXPECT_FALSE(BRUDPSocketOwner(askLocal4));
  guess(false, v6Local);
  EXPECT_EQ(owner(askLocal4), 1);
  EXPECT_EQ(owner(askLocal6), 2);
  auto scoped = askLocal6;
  scoped[24] = 1;
  EXPECT_EQ(owner(scoped), 1);
}

TEST_F(SocketOwnerLookupTest, ThePathMustBeKnownAndIsLeftOutWhenNotUTF8) {
  add(80, true, false, any, 5);
  EXPECT_EQ(BRTCPSocketOwner(askAny4)->description(), "PID 5 /bin/owner");
  machine().ownersKeepSockets = false;  // the path may be another process's
  EXPECT_FALSE(BRTCPSocketOwner(askAny4));
  machine().ownersKeepSockets = true;
  machine().executables[5] = "/bin/\xFF";
  EXPECT_EQ(BRTCPSocketOwner(askAny4), (BRProcess{.pid = 5, .processPath = {}}));
  machine().executables.clear();
  EXPECT_FALSE(BRTCPSocketOwner(askAny4));
}

TEST_F(SocketOwnerLookupTest, OnePassAnswersAllWaitingQuestions) {
  platform::fake::resetQueues();
  add(80, true, false, v4Local, 1);
  add(81, true, false, v4Local, 2);
  std::vector<std::int32_t> answers;
  auto ask = [&](const BRSocketQuestion& question) {
    BRAskSocketOwner(question, [&](const auto& found) { answers.push_back(found ? found->pid : 0); });
  };
  add(83, true, false, v4Local, 0);
  for (auto port : std::initializer_list<std::uint16_t>{80, 81, 82, 83}) {
    ask({.protocol = SocketProtocol::tcp, .address = BRSockAddrMakeIPv4({127, 0, 0, 1}, port), .remote = {}});
  }
  EXPECT_THAT(answers, IsEmpty());
  platform::fake::passTime({});
  EXPECT_THAT(answers, ElementsAre(0, 1, 2, 0));
  ASSERT_THAT(machine().passes, testing::SizeIs(5));  // the owner of one socket is sought again and again
  EXPECT_THAT(machine().passes.front(), ElementsAre(0, 1, 2));

  machine().connections = {{443, machine().sockets[1].second}};
  machine().ownersAreKnown = true;
  const BRSocketQuestion known{.protocol = SocketProtocol::udp,
                               .address = BRSockAddrMakeIPv4({127, 0, 0, 1}, 81),
                               .remote = BRSockAddrMakeIPv4({192, 0, 2, 1}, 443)};
  ask(known);
  EXPECT_EQ(answers.back(), 2);  // answered at once
  machine().ownersKeepSockets = false;
  ask(known);
  EXPECT_EQ(answers.size(), 5u);  // the socket may have just moved to another process
  machine().ownersKeepSockets = true;
  platform::fake::passTime({});
  EXPECT_THAT(answers, ElementsAre(0, 1, 2, 0, 2, 2));
}

}  // namespace
