// What the probes do on every machine: refuse, complete once, and leave nothing behind.
#include <gmock/gmock.h>

#include <mutex>
#include <thread>

#include "helper/probes/BRHDHCPDetector.h"
#include "helper/probes/BRHV6RADetector.h"
#include "platform/dispatch/dispatch.h"
#include "tests/support/eventually.h"
#include "tests/support/this_machine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class Probes : public testing::Test {
 protected:
  Probes() {
    HX_setLogAction([this](std::int8_t, const std::string& module, const std::string& message) {
      std::lock_guard lock(mutex);
      lines.push_back(module + ": " + message);
    });
  }
  ~Probes() override { HX_setLogAction(nullptr); }

  std::vector<std::string> log() {
    std::lock_guard lock(mutex);
    return lines;
  }

  /// The error that a DHCP probe completes with.
  std::string dhcpError(const std::string& interface) {
    std::atomic<int> completions = 0;
    std::string description;
    BRHDHCPDetector().startTestWithInterfaceName(interface, [&](const auto& error, const auto& addresses) {
      EXPECT_FALSE(platform::dispatch::isMainThread());
      EXPECT_FALSE(addresses);
      EXPECT_TRUE(error && error->domain == "HXSimpleError" && error->code == 0);
      if (error) description = error->localizedDescription;
      ++completions;
    });
    EXPECT_TRUE(eventually([&] { return completions == 1; }));
    return description;
  }

  std::mutex mutex;
  std::vector<std::string> lines;
};

TEST_F(Probes, DHCPProbeNeedsAnInterface) {
  EXPECT_EQ(dhcpError(""), "Error: Interface name is empty!");
  EXPECT_THAT(log(), IsEmpty());
  const auto descriptors = openDescriptors();
  EXPECT_EQ(dhcpError("a-name-that-is-too-long-for-an-interface"), "Error: Interface doesn't exist!");
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_THAT(log(), ElementsAre(MatchesRegex("BRHDHCPDetector: DHCP socket: [0-9]+"),
                                 "BRHDHCPDetector: Error: Interface doesn't exist!"));
}

TEST_F(Probes, RouterProbeWithoutAnInterfaceCompletesAtOnce) {
  for (std::string name : {"", "no-such-if"}) {
    lines.clear();
    int completions = 0;
    auto detector = std::make_shared<BRHV6RADetector>();
    detector->setInterface(name);
    detector->setCompletionHandler([&, detector](const auto& data, const auto& address) {
      EXPECT_FALSE(data || address);
      EXPECT_TRUE(detector->stopped());
      ++completions;
    });
    detector->start();
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(detector.use_count(), 1);
    EXPECT_THAT(log(), ElementsAre("BRHV6RADetector: start", "BRHV6RADetector: Invalid interface: " + name));
  }
}

TEST_F(Probes, AHundredRouterProbesCompleteOnceEachAndLeaveNothing) {
  static_cast<void>(HXGCDTimer::onetimeTimerWithQueue(platform::dispatch::mainQueue(), 3600, [] {}));
  const auto descriptors = openDescriptors(), running = threadCount();
  std::atomic<int> completions = 0;
  std::vector<std::shared_ptr<BRHV6RADetector>> detectors;
  for (int index = 0; index < 100; ++index) {
    auto detector = std::make_shared<BRHV6RADetector>();
    detector->setInterface(loopbackInterface());
    detector->setCompletionHandler([&, detector](const auto& gotData, const auto& gotAddress) {
      EXPECT_EQ(gotData.has_value(), gotAddress.has_value());
      ++completions;
    });
    detector->start();
    detectors.push_back(std::move(detector));
  }
  std::vector<std::thread> threads;
  for (bool found : {true, false, true, false}) {
    threads.emplace_back([&, found] {
      const auto data = found ? std::optional(BRHV6RADetector::Data{134}) : std::nullopt;
      for (auto& detector : detectors) detector->completeWithData(data, data);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(completions, 100);
  std::weak_ptr<BRHV6RADetector> last = detectors.back();
  detectors.clear();
  EXPECT_TRUE(eventually([&] { return last.expired(); }));
  EXPECT_TRUE(eventually([&] { return threadCount() <= running; }));
  EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
