// Tests timers with a clock that the tests advance.
#include "foundation/HXGCDTimer.h"

#include <gmock/gmock.h>

#include <limits>
#include <vector>

#include "foundation/HXGCDSequenceTimer.h"
#include "foundation/detail/HXNanoseconds.h"
#include "platform/fake/dispatch.h"

namespace {

using namespace std::chrono_literals;
using platform::fake::passTime;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::Pair;

class Timers : public testing::Test {
 protected:
  Timers() { platform::fake::resetQueues(); }
  HXGCDTimer::Handler counting() {
    return [this] { ++count; };
  }
  HXGCDSequenceTimer::Handler recording() {
    return [this](double interval, bool isLast) { fired.emplace_back(interval, isLast); };
  }

  platform::dispatch::Queue queue = platform::dispatch::makeSerialQueue("test");
  int count = 0;
  std::vector<std::pair<double, bool>> fired;
};

TEST(Nanoseconds, AreCutOffAndStayInRange) {
  EXPECT_EQ(hx::detail::nanosecondsOf(1.9e-9), 1ns);
  EXPECT_EQ(hx::detail::nanosecondsOf(-1), 0ns);
  EXPECT_EQ(hx::detail::nanosecondsOf(std::numeric_limits<double>::quiet_NaN()), 0ns);
  EXPECT_EQ(hx::detail::nanosecondsOf(9.3e9), nanoseconds::max());
  EXPECT_EQ(hx::detail::nanosecondsOf(std::numeric_limits<double>::infinity()), nanoseconds::max());
}

TEST_F(Timers, OneTimeTimerFiresOnceNotEarlyAndEnds) {
  auto timer = HXGCDTimer::onetimeTimerWithQueue(queue, 0.02, counting());
  passTime(20ms - 1ns);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(timer->isValid());
  EXPECT_FALSE(timer->called());
  passTime(1ns);
  EXPECT_FALSE(timer->isValid());
  EXPECT_TRUE(timer->called());
  timer->invalidate();
  passTime(1h);
  EXPECT_EQ(count, 1);
  auto empty = HXGCDTimer::onetimeTimerWithQueue(queue, 0, nullptr);
  passTime({});
  EXPECT_TRUE(empty->called());
}

TEST_F(Timers, RepeatingTimerFiresAtOnceOrAfterItsInterval) {
  auto immediate = HXGCDTimer::repeatingTimerWithQueue(queue, 0.01, 0, true, counting());
  passTime({});
  EXPECT_EQ(count, 1);
  immediate->invalidate();
  auto later = HXGCDTimer::repeatingTimerWithQueue(queue, 0.01, 0.001, false, true, counting());
  passTime(10ms - 1ns);
  EXPECT_EQ(count, 1);
  passTime(30ms + 1ns);
  EXPECT_EQ(count, 5);
  EXPECT_FALSE(later->called());
  EXPECT_TRUE(later->isValid());
}

TEST_F(Timers, TimerThatNobodyKeepsNeverFires) {
  static_cast<void>(HXGCDTimer::onetimeTimerWithQueue(queue, 0, counting()));
  static_cast<void>(HXGCDTimer::repeatingTimerWithQueue(queue, 0.001, 0, true, counting()));
  static_cast<void>(HXGCDSequenceTimer::timerWithQueue(queue, {0, 0}, 0, true, false, recording()));
  passTime(1s);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(fired.empty());
}

TEST_F(Timers, HandlerMayInvalidateOrDropItsTimer) {
  std::shared_ptr<HXGCDTimer> timer;
  timer = HXGCDTimer::repeatingTimerWithQueue(queue, 0.001, 0, true, [&] {
    if (++count == 3) timer->invalidate();
  });
  passTime(1s);
  EXPECT_EQ(count, 3);

  timer = HXGCDTimer::onetimeTimerWithQueue(queue, 0, [&] {
    timer.reset();
    ++count;
  });
  std::weak_ptr<HXGCDTimer> dropped = timer;
  passTime({});
  EXPECT_EQ(count, 4);
  EXPECT_TRUE(dropped.expired());

  // Nothing but its handler keeps this timer.
  auto box = std::make_shared<std::shared_ptr<HXGCDTimer>>();
  *box = HXGCDTimer::repeatingTimerWithQueue(queue, 3600, 0, false, [box] {});
  dropped = *box;
  std::exchange(box, nullptr)->get()->invalidate();
  passTime(2h);
  EXPECT_TRUE(dropped.expired());
}

TEST_F(Timers, HeldTimerLivesUntilItIsInvalidated) {
  auto hold = [](std::shared_ptr<HXGCDTimer> timer) {
    timer->holdReference();
    timer->holdReference();
    return std::weak_ptr(timer);
  };
  auto oneTime = hold(HXGCDTimer::onetimeTimerWithQueue(queue, 0.005, counting()));
  auto repeating = hold(HXGCDTimer::repeatingTimerWithQueue(queue, 3600, 0, false, [] {}));
  passTime(5ms);
  EXPECT_EQ(count, 1);
  EXPECT_TRUE(oneTime.expired());
  ASSERT_FALSE(repeating.expired());
  repeating.lock()->invalidate();
  passTime(2h);
  EXPECT_TRUE(repeating.expired());
}

TEST_F(Timers, DebounceRunsTheLastActionOfEachIdentifier) {
  std::vector<std::string> actions;
  for (std::string action : {"a1", "b1", "a2", "b2"}) {
    HXGCDTimer::debounceWithDelay(0.01, queue, action.substr(0, 1), [&, action] { actions.push_back(action); });
    passTime(2ms);
  }
  passTime(1s);
  EXPECT_THAT(actions, ElementsAre("a2", "b2"));
  HXGCDTimer::debounceWithDelay(0, queue, "a", counting());  // the identifier is free again
  passTime({});
  EXPECT_EQ(count, 1);
}

TEST_F(Timers, SequenceFiresAfterEachDelayAndEnds) {
  auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {0.005, 0.01, 0.02}, 1, false, false, recording());
  passTime(35ms - 1ns);
  EXPECT_THAT(fired, ElementsAre(Pair(0.005, false), Pair(0.01, false)));
  passTime(1h);
  EXPECT_THAT(fired, ElementsAre(Pair(0.005, false), Pair(0.01, false), Pair(0.02, true)));
}

TEST_F(Timers, SequenceRepeatsTheLastDelayUntilInvalidated) {
  std::shared_ptr<HXGCDSequenceTimer> timer;
  timer = HXGCDSequenceTimer::timerWithQueue(queue, {0.002, 0.001}, 0, true, true, [&](double interval, bool isLast) {
    fired.emplace_back(interval, isLast);
    if (fired.size() == 3) timer->invalidate();
  });
  passTime(1s);
  EXPECT_THAT(fired, ElementsAre(Pair(0.002, false), Pair(0.001, true), Pair(0.001, true)));
}

TEST_F(Timers, NextSkipsTheDelayThatIsArmed) {
  auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {3600, 0.001}, 0, false, false, recording());
  timer->next();
  passTime(1ms);
  timer->next();
  passTime(2h);
  EXPECT_THAT(fired, ElementsAre(Pair(0.001, true)));
}

TEST_F(Timers, EmptySequenceNeverFiresAndCannotRepeat) {
  auto timer = HXGCDSequenceTimer::timerWithQueue(queue, {}, 0, false, false, recording());
  timer->next();
  passTime(1h);
  EXPECT_TRUE(fired.empty());
  EXPECT_THROW(static_cast<void>(HXGCDSequenceTimer::timerWithQueue(queue, {}, 0, true, false, recording())),
               std::out_of_range);
}

}  // namespace
