#include "platform/ipc/linux/connection_budget.h"

#include <gtest/gtest.h>

namespace platform::ipc {
namespace {

using namespace std::chrono_literals;
using enum ConnectionBudget::Verdict;

TEST(ConnectionBudget, LetsABurstPassAndThenSoManyASecond) {
  ConnectionBudget budget;
  ConnectionBudget::Time now{1h};
  auto passing = [&](int attempts) {
    int passed = 0;
    while (attempts-- > 0) passed += budget.spend(1000, now) == ConnectionBudget::Verdict::admitted;
    return passed;
  };
  EXPECT_EQ(passing(300), 256);
  now += 1s;
  EXPECT_EQ(passing(100), 64);
  now += 10ms;
  EXPECT_EQ(passing(1), 0);
  now += 10ms;
  EXPECT_EQ(passing(2), 1);
  EXPECT_EQ(budget.spend(1001, now), admitted);  // another user
  now += 1h;
  EXPECT_EQ(passing(300), 256);
}

TEST(ConnectionBudget, ARefusalIsSaidOnceAMinute) {
  ConnectionBudget budget;
  ConnectionBudget::Time now{1h};
  for (int minute = 0; minute < 2; ++minute) {
    for (int i = 0; i < 256; ++i) EXPECT_EQ(budget.spend(1000, now), admitted);
    EXPECT_EQ(budget.spend(1000, now), refusedAndToBeSaid);
    EXPECT_EQ(budget.spend(1000, now), refused);
    // Meanwhile many others come and go.
    for (uid_t other = 2000; other < 4000; ++other) budget.spend(other, now);
    EXPECT_EQ(budget.spend(1000, now), refused);
    now += 61s;
  }
}

}  // namespace
}  // namespace platform::ipc
