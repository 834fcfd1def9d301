#include "platform/ipc/linux/connection_budget.h"

#include <gtest/gtest.h>

namespace platform::ipc {
namespace {

using namespace std::chrono_literals;

TEST(ConnectionBudget, AllowsABurstAndThenAFixedRate) {
  ConnectionBudget budget;
  ConnectionBudget::Time now{1h};
  auto passing = [&](int attempts) {
    int passed = 0;
    while (attempts-- > 0) passed += budget.spend(1000, now);
    return passed;
  };
  EXPECT_EQ(passing(300), 256);
  now += 1s;
  EXPECT_EQ(passing(100), 64);
  now += 10ms;
  EXPECT_EQ(passing(1), 0);
  now += 10ms;
  EXPECT_EQ(passing(2), 1);
  EXPECT_TRUE(budget.spend(1001, now));  // another user
  now += 1h;
  EXPECT_EQ(passing(300), 256);
}

}  // namespace
}  // namespace platform::ipc
