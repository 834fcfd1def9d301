// Tests what the probes do on any machine: they refuse bad interfaces, complete once and release everything.
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

  /// Runs a DHCP probe and returns its error.
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
  for (std::string name : {"no-such-if", "a-name-that-is-too-long-for-an-interface"}) {
    lines.clear();
    const auto descriptors = openDescriptors();
    EXPECT_EQ(dhcpError(name), "Error: Interface doesn't exist!");
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_THAT(log(), ElementsAre(MatchesRegex("BRHDHCPDetector: DHCP socket: [0-9]+"),
                                   "BRHDHCPDetector: Error: Interface doesn't exist!"));
  }
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
  const BRHV6RADetector::Data data{134}, address{28};
  static_cast<void>(HXGCDTimer::onetimeTimerWithQueue(platform::dispatch::mainQueue(), 3600, [] {}));
  const auto descriptors = openDescriptors(), running = threadCount();
  std::atomic<int> completions = 0;
  std::vector<std::shared_ptr<BRHV6RADetector>> detectors;
  std::vector<std::weak_ptr<BRHV6RADetector>> all;
  for (int index = 0; index < 100; ++index) {
    auto detector = std::make_shared<BRHV6RADetector>();
    detector->setInterface(loopbackInterface());
    detector->setCompletionHandler([&, detector](const auto& gotData, const auto& gotAddress) {
      EXPECT_EQ(gotData.has_value(), gotAddress.has_value());
      ++completions;
    });
    detector->start();
    all.push_back(detector);
    detectors.push_back(std::move(detector));
  }
  std::vector<std::thread> threads;
  for (bool found : {true, false, true, false}) {
    threads.emplace_back([&, found] {
      for (auto& detector : detectors) {
        if (found) {
          detector->completeWithData(data, address);
        } else {
          detector->completeWithData(std::nullopt, std::nullopt);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(completions, 100);

  detectors.clear();
  EXPECT_TRUE(eventually(
      [&] { return std::all_of(all.begin(), all.end(), [](const auto& detector) { return detector.expired(); }); }));
  EXPECT_TRUE(eventually([&] { return threadCount() <= running; }));
  EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
