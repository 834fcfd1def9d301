// Tests the threads of queues and timers on Linux, beyond what the header promises.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/base/file_descriptor.h"
#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/linux/event_loop.h"
#include "tests/support/linux/thread_count.h"
#include "tests/support/record.h"
#include "tests/support/this_machine.h"

namespace platform::dispatch {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

TEST(DispatchThreadsDeathTest, MainQueueNeedsNoOtherThreadAndItsTimersNoDescriptors) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto serve = [] {
    async(mainQueue(), [] {
      if (!isMainThread() || threadCount() != 1) std::exit(1);
      after(1ms, mainQueue(), [before = openDescriptors()] { std::exit(openDescriptors() == before ? 42 : 2); });
    });
    dispatchMain();
  };
  EXPECT_EXIT(serve(), testing::ExitedWithCode(42), "");
}

TEST(DispatchThreadsDeathTest, DescriptorsAreServedBetweenPiecesOfWork) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto serve = [] {
    FileDescriptor event(eventfd(0, EFD_CLOEXEC));
    auto source = EventSource::io(event.get(), EPOLLIN, [](std::uint32_t) { std::exit(42); });
    async(mainQueue(), [&] { eventfd_write(event.get(), 1); });
    async(mainQueue(), [] {});
    async(mainQueue(), [] { std::exit(1); });
    dispatchMain();
  };
  EXPECT_EXIT(serve(), testing::ExitedWithCode(42), "");
}

TEST(DispatchThreads, GlobalQueueRuns64AtOnceOnThreadsWithoutSignalsAndLetsThemGo) {
  std::atomic<bool> gate = false, first = false;
  async(globalQueue(), [&] { first = true; });
  EXPECT_TRUE(eventually([&] { return first.load(); }));
  sigset_t own;
  pthread_sigmask(SIG_BLOCK, nullptr, &own);
  EXPECT_FALSE(sigismember(&own, SIGTERM));
  const auto threadsBefore = threadCount();
  std::atomic<int> running = 0, done = 0, tooMany = 0, signalled = 0;
  for (int index = 0; index < 100; ++index) {
    async(globalQueue(), [&] {
      tooMany += ++running > 64;
      sigset_t blocked;
      pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
      for (int signal : {SIGTERM, SIGINT, SIGCHLD, SIGUSR1}) {
        if (!sigismember(&blocked, signal)) ++signalled;
      }
      eventually([&] { return gate.load(); });
      --running;
      ++done;
    });
  }
  EXPECT_TRUE(eventually([&] { return running == 64; }));
  gate = true;
  EXPECT_TRUE(eventually([&] { return done == 100; }));
  EXPECT_EQ(tooMany, 0);
  EXPECT_EQ(signalled, 0);
  EXPECT_TRUE(eventually([&] { return threadCount() < threadsBefore; }));
  async(globalQueue(), [&] { ++done; });  // on a new thread
  EXPECT_TRUE(eventually([&] { return done == 101; }));
}

/// Whether all threads of this process except the calling one sleep (proc_pid_stat(5)).
bool othersSleep() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == std::to_string(gettid())) continue;
    std::ifstream file(task.path() / "stat");
    std::string stat;
    std::getline(file, stat);  // empty if the thread has ended meanwhile
    if (!stat.empty() && stat.substr(stat.rfind(')')).starts_with(") R")) return false;
  }
  return true;
}

TEST(DispatchThreads, NoThreadSpinsAfterATimerHasFired) {
  Record record;
  after(1ms, globalQueue(), [&] { record.add(1); });
  ASSERT_TRUE(record.reaches(1));
  EXPECT_TRUE(eventually(othersSleep));
}

TEST(DispatchThreads, TimerWithLeewayWaitsForAnother) {
  auto queue = makeSerialQueue("test");
  Record record;
  const auto start = steady_clock::now();
  TimerSource patient(queue, {.start = 1ms, .leeway = 1h}, [&] { record.add(steady_clock::now() - start >= 30ms); });
  patient.resume();
  after(30ms, queue, [&] { record.add(2); });
  ASSERT_TRUE(record.reaches(2));
  EXPECT_THAT(record.events(), testing::UnorderedElementsAre(1, 2));
}

}  // namespace
}  // namespace platform::dispatch
