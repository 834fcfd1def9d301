#include "platform/ipc/linux/sender.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::ipc {
namespace {

TEST(Sender, IsTheProcessThatConnected) {
  int ends[2];
  ASSERT_EQ(setegid(2) | seteuid(1), 0) << "run as root";
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  ASSERT_EQ(seteuid(0) | setegid(0), 0);
  FileDescriptor one(ends[0]), other(ends[1]);
  Sender sender(one.get());
  EXPECT_EQ(sender.pid(), getpid());
  EXPECT_EQ(sender.uid(), 1u);
  EXPECT_EQ(sender.gid(), 2u);
  EXPECT_FALSE(sender.isAlive());
  ASSERT_TRUE(sender.takePidfd(one.get()));
  EXPECT_TRUE(sender.isAlive());
  // This program is not signed. Any fault of its executable is a failed requirement.
  EXPECT_EQ(checkSender(sender, "identifier \"com.example.test\"").error().number, code_signing::requirementFailed);
}

}  // namespace
}  // namespace platform::ipc
