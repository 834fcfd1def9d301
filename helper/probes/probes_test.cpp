// Tests router probes that several threads complete.
#include <gtest/gtest.h>

#include <thread>

#include "helper/probes/BRHV6RADetector.h"
#include "platform/dispatch/dispatch.h"
#include "tests/support/captured_log.h"
#include "tests/support/eventually.h"
#include "tests/support/this_machine.h"

namespace {

TEST(RouterProbes, AHundredCompleteOnceEachAndLeaveNothing) {
  CapturedLog log;
  // The first timer starts the thread that serves timers and opens its descriptors, before both are counted.
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
  EXPECT_TRUE(eventually([&] { return threadCount() <= running && openDescriptors() <= descriptors; }));
}

}  // namespace
