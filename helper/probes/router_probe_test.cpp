// Tests router probes in a network namespace of their own, in which the test is the router.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/if_ether.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sched.h>

#include <cstdlib>
#include <future>
#include <stdexcept>

#include "helper/probes/BRHV6RADetector.h"
#include "platform/fake/dispatch.h"
#include "platform/sockets/interface_socket.h"
#include "tests/support/captured_log.h"
#include "tests/support/eventually.h"
#include "tests/support/linux/thread_count.h"
#include "tests/support/this_machine.h"

namespace {

using namespace std::chrono_literals;
using testing::_;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

using Data = BRHV6RADetector::Data;
using Result = std::pair<std::optional<Data>, std::optional<Data>>;

const Data advertisement{134, 0, 0x35, 0x26, 64, 0, 0x07, 0x08, 0, 0, 0, 0, 0, 0, 0, 0};

/// The router is on the other end of the interface "probe0".
class RouterProbeTest : public testing::Test {
 protected:
  RouterProbeTest() {
    if (unshare(CLONE_NEWNET) != 0) throw std::runtime_error("unshare");
    ip("link add probe0 type veth peer name router0");
    for (const std::string interface : {"router0", "probe0"}) ip("link set " + interface + " addrgenmode none up");
    // The kernel adds the route once it has noticed the link.
    EXPECT_TRUE(eventually([] { return std::system("ip route get ff02::2 oif probe0 >/dev/null 2>&1") == 0; }));
    router_ = platform::openSocket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IPV6)).value();
    const auto index = static_cast<int>(if_nametoindex("router0"));
    allNodes_ = {AF_PACKET, htons(ETH_P_IPV6), index, 0, 0, 6, {0x33, 0x33, 0, 0, 0, 1}};
    const timeval limit{.tv_sec = 10, .tv_usec = 0};
    EXPECT_EQ(setsockopt(router_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    EXPECT_EQ(bind(router_.get(), reinterpret_cast<const sockaddr*>(&allNodes_), sizeof allNodes_), 0);
  }
  ~RouterProbeTest() override { EXPECT_EQ(setns(machine_.get(), CLONE_NEWNET), 0); }

  static void ip(const std::string& arguments) { EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0); }

  static std::future<Result> start(const std::string& interface) {
    auto result = std::make_shared<std::promise<Result>>();
    auto detector = std::make_shared<BRHV6RADetector>();
    detector->setInterface(interface);
    detector->setCompletionHandler([=](const auto&... parts) {
      EXPECT_TRUE(detector->stopped());
      result->set_value({parts...});
    });
    detector->start();
    return result->get_future();
  }

  static bool isReady(const std::future<Result>& result) { return result.wait_for(0s) == std::future_status::ready; }

  Data nextSolicitation() const {
    Data packet;
    do {
      packet.resize(100);
      packet.resize(static_cast<std::size_t>(recv(router_.get(), packet.data(), packet.size(), 0)));
    } while (packet[40] != 133);
    return packet;
  }

  void advertise(std::uint8_t hopLimit) const {
    Data packet{0x60, 0, 0, 0, 0, 16, 58, hopLimit};
    packet.insert(packet.end(), {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2});
    packet.insert(packet.end(), {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
    packet.insert(packet.end(), advertisement.begin(), advertisement.end());
    EXPECT_EQ(sendto(router_.get(), packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&allNodes_),
                     sizeof allNodes_),
              56);
  }

  CapturedLog log_;

 private:
  platform::FileDescriptor machine_{open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)}, router_;
  sockaddr_ll allNodes_{};
};

TEST_F(RouterProbeTest, SolicitsEverySecondUntilANeighbourAdvertisesARouter) {
  ip("address add 2001:db8::1/64 dev probe0 nodad");  // with a link-local address, the kernel would solicit too
  testing::internal::CaptureStdout();
  const auto begin = std::chrono::steady_clock::now();
  auto result = start("probe0");
  for (int second = 0; second < 3; ++second) {
    EXPECT_THAT(nextSolicitation(),
                ElementsAreArray<testing::Matcher<int>>(
                    {0x60, _,    _, _, 0, 8, 58, 255, 0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0,   0, 0, 0, 0, 0, 0, 1,
                     0xFF, 0x02, 0, 0, 0, 0, 0,  0,   0,    0,    0,    0,    0, 0, 0, 2, 133, 0, _, _, 0, 0, 0, 0}));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, second * 1s);
    if (second == 0) advertise(254);  // which a router on another link could have sent
  }
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Sent RS (8\u202Fbytes) on probe0\n"));
  advertise(255);
  ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
  const auto [data, address] = result.get();
  EXPECT_EQ(data, advertisement);
  EXPECT_THAT(*address, ElementsAre(28, 30, 0, 0, 0, 0, 0, 0, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2,
                                    if_nametoindex("probe0"), 0, 0, 0));
  platform::fake::passTime(5s);
  EXPECT_THAT(log_.lines, ElementsAre("[BRHV6RADetector] start", "[BRHV6RADetector] completed"));
}

TEST_F(RouterProbeTest, EndsWithNothingAtOnceOrAfterFiveSeconds) {
  auto impossible = start("nothing0"), unanswered = start("probe0");
  EXPECT_TRUE(isReady(impossible));
  EXPECT_FALSE(isReady(unanswered));
  platform::fake::passTime(5s);
  ASSERT_TRUE(isReady(unanswered));
  EXPECT_EQ(unanswered.get(), Result());
  EXPECT_THAT(log_.lines, ElementsAre("[BRHV6RADetector] start", "[BRHV6RADetector] Invalid interface: nothing0",
                                      "[BRHV6RADetector] start", "[BRHV6RADetector] timeout"));
}

TEST_F(RouterProbeTest, AHundredThatCannotSolicitHearOrTimeOutOnceEachAndLeaveNothing) {
  const auto descriptors = openDescriptors(), threads = threadCount();
  testing::internal::CaptureStderr();
  std::vector<std::future<Result>> results;
  for (int number = 0; number < 100; ++number) results.push_back(start("probe0"));  // which has no address
  EXPECT_TRUE(eventually([] { return lseek(STDERR_FILENO, 0, SEEK_END) > 0; }));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("sendto: Cannot assign requested address\n"));
  EXPECT_TRUE(eventually([&] { return advertise(255), isReady(results[0]); }));
  platform::fake::passTime(5s);
  for (auto& result : results) {
    ASSERT_TRUE(eventually([&] { return isReady(result); }));
    const auto [data, address] = result.get();
    EXPECT_EQ(data.has_value(), address.has_value());
  }
  EXPECT_TRUE(eventually([&] { return threadCount() <= threads && openDescriptors() <= descriptors; }));
}

}  // namespace
