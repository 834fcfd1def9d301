// Timers that are kept, dropped, held, invalidated from every place, and debounced.
#include "foundation/HXGCDTimer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include "foundation/HXGCDSequenceTimer.h"
#include "foundation/detail/HXNanoseconds.h"
#include "tests/support/eventually.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::Pair;

class Timers : public testing::Test {
 protected:
  /// Waits until every timer due `delay` seconds from now has fired.
  void waitUntilFired(double delay) {
    std::atomic<bool> fired = false;
    auto timer = HXGCDTimer::onetimeTimerWithQueue(queue, delay, [&] { fired = true; });
    ASSERT_TRUE(eventually([&] { return !timer->isValid(); }));
    ASSERT_TRUE(fired);
  }

  platform::dispatch::Queue queue = platform::dispatch::makeSerialQueue("test");
  std::atomic<int> count = 0;
};

TEST(Nanoseconds, AreCutOffAndStayInRange) {
  EXPECT_EQ(hx::detail::nanosecondsOf(1.5), 1500ms);
  EXPECT_EQ(hx::detail::nanosecondsOf(1.9e-9), 1ns);
  EXPECT_EQ(hx::detail::nanosecondsOf(-1), 0ns);
  EXPECT_EQ(hx::detail::nanosecondsOf(std::numeric_limits<double>::quiet_NaN()), 0ns);
  EXPECT_EQ(hx::detail::nanosecondsOf(9.3e9), nanoseconds::max());
  EXPECT_EQ(hx::detail::nanosecondsOf(std::numeric_limits<double>::infinity()), nanoseconds::max());
}

TEST_F(Timers, OneTimeTimerFiresOnceNotEarlyAndEnds) {
  for (bool usingWalltime : {false, true}) {
    count = 0;
    const auto start = steady_clock::now();
    auto timer = HXGCDTimer::onetimeTimerWithQueue(queue, 0.02, usingWalltime, [this] { ++count; });
    EXPECT_TRUE(timer->isValid());
    EXPECT_FALSE(timer->called());
    ASSERT_TRUE(eventually([&] { return !timer->isValid(); }));
    EXPECT_GE(steady_clock::now() - start, usingWalltime ? 15ms : 20ms);
    EXPECT_TRUE(timer->called());
    timer->invalidate();
    timer->invalidate();
    waitUntilFired(0.01);
    EXPECT_EQ(count, 1);
  }
}

TEST_F(Timers, RepeatingTimerFiresAtOnceOrAfterItsInterval) {
  auto immediate = HXGCDTimer::repeatingTimerWithQueue(queue, 3600, 0, true, [this] { ++count; });
  EXPECT_TRUE(eventually([this] { return count == 1; }));

  std::atomic<int> fired = 0;
  const auto start = steady_clock::now();
  auto later = HXGCDTimer::repeatingTimerWithQueue(queue, 0.01, 0.001, false, true, [&] { ++fired; });
  ASSERT_TRUE(eventually([&] { return fired >= 4; }));
  EXPECT_GE(steady_clock::now() - start, 35ms);
  EXPECT_FALSE(later->called());
  later->invalidate();
  waitUntilFired(0);
  EXPECT_EQ(count, 1);
}

TEST_F(Timers, TimerThatNobodyKeepsNeverFires) {
  // Released by the work queued before them, whether or not they are due by then.
  platform::dispatch::async(queue, [this] {
    static_cast<void>(HXGCDTimer::onetimeTimerWithQueue(queue, 0, [this] { ++count; }));
    static_cast<void>(HXGCDTimer::repeatingTimerWithQueue(queue, 0.001, 0, true, [this] { ++count; }));
    static_cast<void>(
        HXGCDSequenceTimer::timerWithQueue(queue, {0, 0}, 0, true, false, [this](double, bool) { ++count; }));
    auto timer = HXGCDTimer::onetimeTimerWithQueue(queue, 0, [this] { ++count; });
    EXPECT_TRUE(eventually([start = steady_clock::now()] { return steady_clock::now() > start + 5ms; }));
  });
  waitUntilFired(0.02);
  EXPECT_EQ(count, 0);
}

TEST_F(Timers, HandlerMayInvalidateOrDropItsTimer) {
  std::shared_ptr<HXGCDTimer> timer;
  platform::dispatch::async(queue, [&] {
    timer = HXGCDTimer::repeatingTimerWithQueue(queue, 0.001, 0, true, [&] {
      if (++count == 3) timer->invalidate();
    });
  });
  waitUntilFired(0.05);
  EXPECT_TRUE(eventually([this] { return count >= 3; }));
  waitUntilFired(0.01);
  EXPECT_EQ(count, 3);

  std::weak_ptr<HXGCDTimer> dropped;
  platform::dispatch::async(queue, [&] {
    timer = HXGCDTimer::onetimeTimerWithQueue(queue, 0, [&] {
      timer.reset();
      ++count;
    });
    dropped = timer;
  });
  EXPECT_TRUE(eventually([this] { return count == 4; }));
  waitUntilFired(0);
  EXPECT_TRUE(dropped.expired());

  // Kept by its handler alone.
  auto box = std::make_shared<std::shared_ptr<HXGCDTimer>>();
  *box = HXGCDTimer::repeatingTimerWithQueue(queue, 3600, 0, false, [box] {});
  dropped = *box;
  std::exchange(box, nullptr)->get()->invalidate();
  EXPECT_TRUE(eventually([&] { return dropped.expired(); }));

  auto empty = HXGCDTimer::onetimeTimerWithQueue(queue, 0, nullptr);
  EXPECT_TRUE(eventually([&] { return empty->called(); }));
}

TEST_F(Timers, MayBeInvalidatedFromAnyThreadWhileFiring) {
  for (int round = 0; round < 100; ++round) {
    std::atomic<int> fired = 0;
    auto timer = HXGCDTimer::repeatingTimerWithQueue(queue, 1e-6, 0, true, [&] { ++fired; });
    timer->holdReference();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
      threads.emplace_back([timer, &fired] {
        while (fired < 2) std::this_thread::yield();
        timer->invalidate();
        timer->holdReference();
      });
    }
    for (auto& thread : threads) thread.join();
    waitUntilFired(0);  // a handler call that had begun has now ended
    int final = fired;
    waitUntilFired(0.0001);
    EXPECT_EQ(fired, final);
    EXPECT_EQ(timer.use_count(), 1);
  }
}

TEST_F(Timers, HeldTimerLivesUntilItIsInvalidated) {
  std::weak_ptr<HXGCDTimer> oneTime, repeating;
  {
    auto timer = HXGCDTimer::onetimeTimerWithQueue(queue, 0.005, [this] { ++count; });
    timer->holdReference();
    timer->holdReference();
    oneTime = timer;
  }
  {
    auto timer = HXGCDTimer::repeatingTimerWithQueue(queue, 3600, 0, false, [] {});
    timer->holdReference();
    repeating = timer;
  }
  EXPECT_TRUE(eventually([&] { return oneTime.expired(); }));
  EXPECT_EQ(count, 1);
  ASSERT_FALSE(repeating.expired());
  repeating.lock()->invalidate();
  EXPECT_TRUE(repeating.expired());

  // Held only after it has fired: nothing would release it later.
  auto fired = HXGCDTimer::onetimeTimerWithQueue(queue, 0, [] {});
  ASSERT_TRUE(eventually([&] { return !fired->isValid(); }));
  fired->holdReference();
  waitUntilFired(0);
  EXPECT_EQ(fired.use_count(), 1);
}

TEST_F(Timers, DebounceRunsTheLastActionOfEachIdentifier) {
  std::vector<int> actions;  // used on the queue only
  // Called from within the queue, so that the calls are queued one after the other even on a busy machine.
  platform::dispatch::async(queue, [this, &actions] {
    for (int index = 1; index <= 3; ++index) {
      for (auto* identifier : {"a", "b"}) {
        int action = index * 10 + (*identifier == 'b');
        HXGCDTimer::debounceWithDelay(0.01, queue, identifier, [this, &actions, action] {
          actions.push_back(action);
          ++count;
        });
      }
    }
  });
  ASSERT_TRUE(eventually([this] { return count == 2; }));
  waitUntilFired(0.02);
  EXPECT_THAT(actions, ElementsAre(30, 31));

  // The identifier is free again.
  HXGCDTimer::debounceWithDelay(0, queue, "a", [this] { ++count; });
  EXPECT_TRUE(eventually([this] { return count == 3; }));
}

TEST_F(Timers, DebounceOnAConcurrentQueueAlwaysRunsAnAction) {
  for (int round = 0; round < 50; ++round) {
    auto calls = std::make_shared<std::atomic<int>>(0);
    for (int call = 0; call < 8; ++call) {
      HXGCDTimer::debounceWithDelay(0.0001, platform::dispatch::globalQueue(), "concurrent", [calls] { ++*calls; });
    }
    EXPECT_TRUE(eventually([&] { return *calls > 0; }));
    // Once nothing keeps the actions, all of them have run or been dropped.
    EXPECT_TRUE(eventually([&] { return calls.use_count() == 1; }));
    EXPECT_LE(*calls, 8);
  }
}

class SequenceTimers : public Timers {
 protected:
  HXGCDSequenceTimer::Handler recording() {
    return [this](double interval, bool isLast) {
      fired.emplace_back(interval, isLast);
      ++count;
    };
  }
  std::vector<std::pair<double, bool>> fired;  // used on the queue only
};

TEST_F(SequenceTimers, FiresAfterEachDelayAndEnds) {
  const auto start = steady_clock::now();
  auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {0.005, 0.01, 0.02}, 1, false, false, recording());
  EXPECT_THAT(timer->intervalSequence(), ElementsAre(0.005, 0.01, 0.02));
  ASSERT_TRUE(eventually([this] { return count == 3; }));
  EXPECT_GE(steady_clock::now() - start, 35ms);
  waitUntilFired(0.03);
  EXPECT_THAT(fired, ElementsAre(Pair(0.005, false), Pair(0.01, false), Pair(0.02, true)));
}

TEST_F(SequenceTimers, RepeatsTheLastDelayUntilInvalidated) {
  std::shared_ptr<HXGCDSequenceTimer> timer;
  platform::dispatch::async(queue, [&] {
    timer = HXGCDSequenceTimer::timerWithQueue(queue, {0.002, 0.001}, 0, true, true, [&](double interval, bool isLast) {
      fired.emplace_back(interval, isLast);
      if (++count == 4) timer->invalidate();
    });
  });
  ASSERT_TRUE(eventually([this] { return count == 4; }));
  waitUntilFired(0.01);
  EXPECT_THAT(fired, ElementsAre(Pair(0.002, false), Pair(0.001, true), Pair(0.001, true), Pair(0.001, true)));
}

TEST_F(SequenceTimers, NextSkipsTheDelayThatIsArmed) {
  auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {3600, 0.001}, 0, false, false, recording());
  timer->next();
  ASSERT_TRUE(eventually([this] { return count == 1; }));
  timer->next();
  waitUntilFired(0.01);
  EXPECT_THAT(fired, ElementsAre(Pair(0.001, true)));
}

TEST_F(SequenceTimers, EmptyListNeverFiresAndCannotRepeat) {
  auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {}, 0, false, false, recording());
  timer->next();
  waitUntilFired(0.005);
  EXPECT_EQ(count, 0);
  EXPECT_THROW(static_cast<void>(HXGCDSequenceTimer::timerWithQueue(queue, {}, 0, true, false, recording())),
               std::out_of_range);
}

TEST_F(SequenceTimers, MayBeInvalidatedFromAnyThreadWhileFiring) {
  for (int round = 0; round < 100; ++round) {
    std::atomic<int> calls = 0;
    auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {0}, 0, true, false, [&](double, bool) { ++calls; });
    while (calls < 2) std::this_thread::yield();
    timer->invalidate();
    waitUntilFired(0);
    int final = calls;
    waitUntilFired(0.0001);
    EXPECT_EQ(calls, final);
  }
}

}  // namespace
