// Tests blocked queues, cancelled timers, and queues and timers under load.
#include "platform/dispatch/dispatch.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/record.h"

namespace platform::dispatch {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using testing::ElementsAre;

class DispatchDeathTest : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(DispatchDeathTest, BusyMainQueueDelaysNoOtherQueue) {
  auto serve = [] {
    async(mainQueue(), [] {
      std::atomic<bool> gate = false;
      after(1ms, globalQueue(), [&gate] { gate = true; });
      if (!eventually([&] { return gate.load(); })) std::exit(1);
      after(1ms, mainQueue(), [] { std::exit(42); });
    });
    dispatchMain();
  };
  EXPECT_EXIT(serve(), testing::ExitedWithCode(42), "");
}

TEST_F(DispatchDeathTest, ExceptionThatLeavesWorkEndsTheProcess) {
  auto run = [] {
    async(globalQueue(), [] { throw std::runtime_error("work failed"); });
    eventually([] { return false; });
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT), "work failed");
}

TEST(Dispatch, SerialQueueRunsOneAtATimeInTheOrderOfEachThread) {
  constexpr int threads = 4, pieces = 500;
  std::array<int, threads> next{};  // only the queue protects it
  Record disorder;
  std::atomic<int> total = 0;
  {
    auto queue = makeSerialQueue("test");
    std::vector<std::thread> producers;
    for (std::size_t thread = 0; thread < threads; ++thread) {
      producers.emplace_back([&, thread] {
        for (int piece = 0; piece < pieces; ++piece) {
          async(queue, [&, thread, piece] {
            if (next[thread]++ != piece) disorder.add(piece);
            ++total;
          });
        }
      });
    }
    for (auto& producer : producers) producer.join();
  }
  ASSERT_TRUE(eventually([&] { return total == threads * pieces; }));
  EXPECT_THAT(disorder.events(), testing::IsEmpty());
}

TEST(Dispatch, AfterRunsByTimeAndNeverEarly) {
  auto queue = makeSerialQueue("test");
  Record record;
  const auto start = steady_clock::now();
  after(40ms, queue, [&] { record.add(steady_clock::now() - start < 40ms ? 0 : 3); });
  after(20ms, queue, [&] { record.add(2); });
  after(-1s, queue, [&] { record.add(1); });
  const bool isSecondDueFirst = steady_clock::now() - start < 20ms;  // not always on a busy machine
  ASSERT_TRUE(record.reaches(3));
  EXPECT_THAT(record.events(), testing::UnorderedElementsAre(1, 2, 3));
  if (isSecondDueFirst) {
    EXPECT_THAT(record.events(), ElementsAre(1, 2, 3));
  }
}

/// Cancels a timer of a serial queue and waits until its handler has returned.
void end(TimerSource& timer, const Queue& queue) {
  timer.cancel();
  std::atomic<bool> done = false;
  async(queue, [&] { done = true; });
  EXPECT_TRUE(eventually([&] { return done.load(); }));
}

TEST(Dispatch, TimersOfBothClocksRepeatOnTheirGrid) {
  auto queue = makeSerialQueue("test");
  for (auto clock : {Clock::monotonic, Clock::wall}) {
    std::atomic<int> fired = 0;
    const auto start = steady_clock::now();
    TimerSource timer(queue, {.clock = clock, .start = 10ms, .period = 5ms}, [&] { ++fired; });
    timer.resume();
    ASSERT_TRUE(eventually([&] { return fired >= 5; }));
    // The system may slew the wall clock meanwhile, so 30 ms of it may be shorter.
    EXPECT_GE(steady_clock::now() - start, clock == Clock::monotonic ? 30ms : 25ms);
    end(timer, queue);
  }
}

TEST(Dispatch, MissedFiringsOfABusyQueueComeAsOne) {
  constexpr auto period = 5ms;
  auto queue = makeSerialQueue("test");
  std::atomic<bool> gate = false;
  std::atomic<int> calls = 0;
  async(queue, [&] { eventually([&] { return gate.load(); }); });
  const auto start = steady_clock::now();
  TimerSource timer(queue, {.start = period, .period = period}, [&] { ++calls; });
  timer.resume();
  ASSERT_TRUE(eventually([&] { return steady_clock::now() >= start + 10 * period; }));
  const auto opened = steady_clock::now();
  gate = true;
  ASSERT_TRUE(eventually([&] { return calls >= 4; }));
  // Ten missed firings become one call, and later calls keep to the schedule.
  EXPECT_GE(steady_clock::now() - opened, 2 * period);
  end(timer, queue);
}

TEST(Dispatch, CancelledTimerStaysSilentEvenWhenItsFiringWaitsInTheQueue) {
  auto queue = makeSerialQueue("test");
  std::atomic<bool> gate = false;
  Record record;
  async(queue, [&] { eventually([&] { return gate.load(); }); });
  TimerSource cancelled(queue, {}, [&] { record.add(1); });
  auto captured = std::make_shared<int>();
  TimerSource replaced(queue, {.start = 1h}, [captured] {});
  TimerSource other(queue, {}, [&] { record.add(3); });
  cancelled.resume();
  replaced.resume();
  other.resume();
  std::atomic<bool> due = false;
  after(1ms, globalQueue(), [&] { due = true; });
  EXPECT_TRUE(eventually([&] { return due.load(); }));
  cancelled.cancel();
  EXPECT_FALSE(cancelled);
  cancelled.cancel();
  replaced = {};
  gate = true;
  ASSERT_TRUE(record.reaches(1));
  EXPECT_THAT(record.events(), ElementsAre(3));
  EXPECT_TRUE(eventually([&] { return captured.use_count() == 1; }));
}

TEST(Dispatch, TimersMadeAndCancelledOnManyThreadsNeverOverlapThemselves) {
  std::atomic<int> overlaps = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        auto inside = std::make_shared<std::atomic<int>>(0), fired = std::make_shared<std::atomic<int>>(0);
        TimerSource timer(globalQueue(), {.period = 10us}, [&overlaps, inside, fired] {
          overlaps += (*inside)++;
          ++*fired;
          --*inside;
        });
        timer.resume();
        while (*fired < 3) std::this_thread::yield();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(overlaps, 0);
}

}  // namespace
}  // namespace platform::dispatch
