#include "cli/words.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace brimo {
namespace {

using testing::ElementsAre;

TEST(Words, AreQuotedAsInAShell) {
  EXPECT_THAT(splitWords("  set-proxy\t'My  Wi-Fi' \"a \\\"b\\\\\" c\\ d e'f'\"g\" ''"),
              ElementsAre("set-proxy", "My  Wi-Fi", "a \"b\\", "c d", "efg", ""));
  EXPECT_THAT(splitWords("except=*.a#b # a comment 'that is not read"), ElementsAre("except=*.a#b"));
  EXPECT_THAT(splitWords("a\\"), ElementsAre("a\\"));
  EXPECT_THROW(splitWords("'a"), std::invalid_argument);
  EXPECT_THROW(splitWords("\"a\\\""), std::invalid_argument);
}

}  // namespace
}  // namespace brimo
