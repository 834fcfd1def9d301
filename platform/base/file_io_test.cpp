#include "platform/base/file_io.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

namespace platform {
namespace {

TEST(FileIO, EndsWithTheFileWhateverErrorAnEarlierCallHad) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  errno = EINTR;
  EXPECT_TRUE(writeAll(ends[1], "text"));
  close(ends[1]);
  std::array<char, 8> buffer;
  EXPECT_EQ(readInto(ends[0], buffer).value(), 4u);
  close(ends[0]);
}

}  // namespace
}  // namespace platform
