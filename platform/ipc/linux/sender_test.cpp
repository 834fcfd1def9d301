#include "platform/ipc/linux/sender.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::ipc {
namespace {

TEST(Sender, AnyFaultOfItsExecutableIsAFailedRequirement) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  FileDescriptor one(ends[0]), other(ends[1]);
  Sender sender(one.get());
  EXPECT_EQ(sender.pid(), getpid());
  EXPECT_FALSE(sender.isAlive());
  ASSERT_TRUE(sender.takePidfd(one.get()));
  EXPECT_TRUE(sender.isAlive());
  // This program is not signed.
  EXPECT_EQ(checkSender(sender, "identifier \"com.example.test\"").error().number, code_signing::requirementFailed);
}

}  // namespace
}  // namespace platform::ipc
