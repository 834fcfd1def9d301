// Tests timers that other threads invalidate, hold and debounce while they fire.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "foundation/HXGCDSequenceTimer.h"
#include "foundation/HXGCDTimer.h"
#include "tests/support/eventually.h"

namespace {

class TimerRaces : public testing::Test {
 protected:
  /// Waits until all due timers have fired. Expects that `fired` does not change for a while after that.
  void expectSilence(const std::atomic<int>& fired) {
    waitUntilFired(0);  // a handler that was running has returned now
    const int final = fired;
    waitUntilFired(0.0001);
    EXPECT_EQ(fired, final);
  }

  platform::dispatch::Queue queue = platform::dispatch::makeSerialQueue("test");

 private:
  void waitUntilFired(double delay) {
    auto timer = HXGCDTimer::onetimeTimerWithQueue(queue, delay, [] {});
    ASSERT_TRUE(eventually([&] { return !timer->isValid(); }));
  }
};

TEST_F(TimerRaces, MayBeInvalidatedFromAnyThreadWhileFiring) {
  for (int round = 0; round < 100; ++round) {
    std::atomic<int> fired = 0, steps = 0;
    auto timer = HXGCDTimer::repeatingTimerWithQueue(queue, 1e-6, 0, true, [&] { ++fired; });
    timer->holdReference();
    auto sequence = HXGCDSequenceTimer::timerWithQueue(queue, {0}, 0, true, false, [&](double, bool) { ++steps; });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
      threads.emplace_back([&] {
        while (fired < 2 || steps < 2) std::this_thread::yield();
        timer->invalidate();
        timer->holdReference();
        sequence->invalidate();
      });
    }
    for (auto& thread : threads) thread.join();
    expectSilence(fired);
    expectSilence(steps);
    EXPECT_EQ(timer.use_count(), 1);
  }
}

TEST_F(TimerRaces, DebounceOnAConcurrentQueueAlwaysRunsAnAction) {
  for (int round = 0; round < 50; ++round) {
    auto calls = std::make_shared<std::atomic<int>>(0);
    for (int call = 0; call < 8; ++call) {
      HXGCDTimer::debounceWithDelay(0.0001, platform::dispatch::globalQueue(), "concurrent", [calls] { ++*calls; });
    }
    EXPECT_TRUE(eventually([&] { return *calls > 0; }));
    // Once nothing else refers to `calls`, every action has run or been dropped.
    EXPECT_TRUE(eventually([&] { return calls.use_count() == 1; }));
    EXPECT_LE(*calls, 8);
  }
}

}  // namespace
