#include "foundation/HXByteCount.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(ByteCount, ChoosesTheUnitBeforeItRounds) {
  for (auto [count, text] : std::initializer_list<std::pair<std::uint64_t, const char*>>{
           {999, "999 B"},
           {1000, "1 KB"},
           {1500, "2 KB"},
           {2500, "2 KB"},  // halves round to even
           {999'999, "1000 KB"},
           {1'250'000, "1.2 MB"},
           {999'999'999, "1000.0 MB"},
           {1'000'000'000, "1.00 GB"},
           {1'000'000'000'000, "1.00 TB"},
           {std::numeric_limits<std::uint64_t>::max(), "18446744.07 TB"},
       }) {
    EXPECT_EQ(stringFromByteCount(count), text);
    EXPECT_EQ(speedStringFromByteCount(count), std::string(text) + "/s");
  }
}

TEST(ByteCount, FitsTheNumberIntoItsCharacters) {
  EXPECT_EQ(stringWithDouble(1.236, 3), "1.2");
  EXPECT_EQ(stringWithDouble(1.236, 2), "1");

  EXPECT_EQ(stringFromByteCount(999, 4), "1 KB");
  EXPECT_EQ(stringFromByteCount(999'999, 1), "1000 KB");
  EXPECT_EQ(stringFromByteCount(1'000'000, 4), "1.00 MB");
  EXPECT_EQ(stringFromByteCount(123'456'789'000, 3), "123 GB");
  EXPECT_EQ(stringFromByteCount(2'000'000'000'000'000, 4), "2000 TB");
}

}  // namespace
