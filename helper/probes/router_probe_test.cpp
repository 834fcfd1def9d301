// Tests router probes in a network namespace of their own, in which the test is the router.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <sched.h>

#include <cstdlib>
#include <future>
#include <stdexcept>

#include "helper/probes/BRHV6RADetector.h"
#include "platform/fake/dispatch.h"
#include "platform/sockets/interface_socket.h"
#include "tests/support/bound_socket.h"
#include "tests/support/captured_log.h"
#include "tests/support/eventually.h"

namespace {

using namespace std::chrono_literals;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;

using Data = BRHV6RADetector::Data;
using Result = std::pair<std::optional<Data>, std::optional<Data>>;

/// A router, fe80::2, on the other end of the interface "probe0".
class RouterProbeTest : public testing::Test {
 protected:
  RouterProbeTest() {
    if (unshare(CLONE_NEWNET) != 0) throw std::runtime_error("unshare");
    ip("link add probe0 type veth peer name router0");
    for (const std::string interface : {"router0", "probe0"}) ip("link set " + interface + " addrgenmode none up");
    ip("address add fe80::2/64 dev router0 nodad");
    // The kernel adds the route once it has noticed the link.
    EXPECT_TRUE(eventually([] { return std::system("ip route get ff02::2 oif probe0 >/dev/null 2>&1") == 0; }));
    router_ = platform::openSocket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6).value();
    const auto group = onLink("ff02::2");
    setOption(IPPROTO_IPV6, IPV6_JOIN_GROUP, ipv6_mreq{group.six.sin6_addr, group.six.sin6_scope_id});
    setOption(SOL_SOCKET, SO_RCVTIMEO, timeval{.tv_sec = 10, .tv_usec = 0});
    EXPECT_TRUE(platform::requestHopLimit(router_.get()));
    EXPECT_EQ(bind(router_.get(), &group.any, group.length), 0);
  }
  ~RouterProbeTest() override { EXPECT_EQ(setns(machine_.get(), CLONE_NEWNET), 0); }

  static void ip(const std::string& arguments) { EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0); }

  static std::future<Result> start(const std::string& interface) {
    auto result = std::make_shared<std::promise<Result>>();
    auto detector = std::make_shared<BRHV6RADetector>();
    detector->setInterface(interface);
    detector->setCompletionHandler([=](const auto& data, const auto& address) {
      EXPECT_TRUE(detector->stopped());
      result->set_value({data, address});
    });
    detector->start();
    return result->get_future();
  }

  static bool isReady(const std::future<Result>& result) { return result.wait_for(0s) == std::future_status::ready; }

  /// The hop limit and the bytes of the next solicitation.
  Data nextSolicitation() const {
    Data bytes(64);
    while (auto received = platform::receiveICMPv6(router_.get(), std::span(bytes).subspan(1))) {
      if (bytes[1] != ND_ROUTER_SOLICIT) continue;
      bytes[0] = static_cast<std::uint8_t>(received->hopLimit.value_or(0));
      bytes.resize(1 + received->length);
      return bytes;
    }
    return {};
  }

  void advertise(std::uint8_t hopLimit) const {
    setOption(IPPROTO_IPV6, IPV6_MULTICAST_HOPS, int{hopLimit});
    const std::array<std::uint8_t, 16> advertisement{134, 0, 0, 0, hopLimit, 0, 0x07, 0x08};
    const auto hosts = onLink("ff02::1");
    sendto(router_.get(), advertisement.data(), advertisement.size(), 0, &hosts.any, hosts.length);
  }

  CapturedLog log_;

 private:
  static platform::test::SocketAddress onLink(const std::string& group) {
    platform::test::SocketAddress address(group, 0);
    address.six.sin6_scope_id = if_nametoindex("router0");
    return address;
  }

  template <class Value>
  void setOption(int level, int option, const Value& value) const {
    EXPECT_EQ(setsockopt(router_.get(), level, option, &value, sizeof value), 0) << option;
  }

  platform::FileDescriptor machine_{open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)};
  platform::FileDescriptor router_;
};

TEST_F(RouterProbeTest, SolicitsEverySecondUntilARouterOfTheLinkAnswers) {
  ip("address add 2001:db8::1/64 dev probe0 nodad");  // with a link-local address, the kernel would solicit too
  testing::internal::CaptureStdout();
  const auto start = std::chrono::steady_clock::now();
  auto result = RouterProbeTest::start("probe0");
  const std::vector<Data> solicitations{nextSolicitation(), nextSolicitation(), nextSolicitation()};
  EXPECT_GE(std::chrono::steady_clock::now() - start, 2s);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Sent RS (8\u202Fbytes) on probe0\n"));
  EXPECT_THAT(solicitations, testing::Each(ElementsAre(255, 133, 0, _, _, 0, 0, 0, 0)));
  advertise(254);
  advertise(255);
  ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
  const auto [data, address] = result.get();
  EXPECT_THAT(*data, ElementsAre(134, 0, _, _, 255, 0, 0x07, 0x08, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(*address, ElementsAre(28, 30, 0, 0, 0, 0, 0, 0, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2,
                                    if_nametoindex("probe0"), 0, 0, 0));
  platform::fake::passTime(5s);
  EXPECT_THAT(log_.lines, ElementsAre("[BRHV6RADetector] start", "[BRHV6RADetector] completed"));
}

TEST_F(RouterProbeTest, AFailedSolicitationIsReportedAndARouterStillHeard) {
  testing::internal::CaptureStderr();
  auto result = start("probe0");  // which has no address
  EXPECT_TRUE(eventually([] { return lseek(STDERR_FILENO, 0, SEEK_END) > 0; }));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("sendto: Cannot assign requested address\n"));
  EXPECT_TRUE(eventually([&] { return advertise(255), isReady(result); }));
  EXPECT_TRUE(result.get().first);
}

TEST_F(RouterProbeTest, EndsWithNothingAtOnceOrAfterFiveSeconds) {
  auto impossible = start("nothing0");
  ASSERT_TRUE(isReady(impossible));
  EXPECT_EQ(impossible.get(), Result());
  auto unanswered = start("probe0");
  platform::fake::passTime(5s);
  ASSERT_TRUE(isReady(unanswered));
  EXPECT_EQ(unanswered.get(), Result());
  EXPECT_THAT(log_.lines, ElementsAre("[BRHV6RADetector] start", "[BRHV6RADetector] Invalid interface: nothing0",
                                      "[BRHV6RADetector] start", "[BRHV6RADetector] timeout"));
}

}  // namespace
