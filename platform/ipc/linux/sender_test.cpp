#include "platform/ipc/linux/sender.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/fake/service.h"

namespace platform::ipc {
namespace {

TEST(Sender, IsTheProcessThatConnected) {
  ASSERT_EQ(getuid(), 0u) << "run as root";
  const mode_t mask = umask(0);
  fake::Service service;
  umask(mask);
  for (gid_t realGroup : {2, 3}) {
    pid_t child = fork();
    if (child == 0) {
      ClientChannel channel;
      bool isOpen = setresgid(realGroup, 3, 3) == 0 && setresuid(1, 1, 1) == 0 && channel.open(service.name);
      while (isOpen) pause();
      _exit(1);
    }
    fake::waitReadable(service.descriptor());
    FileDescriptor socket(accept(service.descriptor(), nullptr, nullptr));
    Sender sender(socket.get());
    EXPECT_EQ(sender.pid(), child);
    EXPECT_EQ(sender.uid(), 1u);
    EXPECT_EQ(sender.gid(), 3u);
    EXPECT_FALSE(sender.isAlive());
    EXPECT_TRUE(sender.takePidfd(socket.get()));
    EXPECT_TRUE(sender.isAlive());
    EXPECT_TRUE(sender.sharesNamespaces());
    EXPECT_EQ(sender.wasGivenGroup(3), realGroup == 2);
    EXPECT_FALSE(sender.wasGivenGroup(2));
    // This program is not signed. Any fault of the executable is a failed requirement.
    EXPECT_EQ(checkSender(sender, "identifier \"x\"").error().number, code_signing::requirementFailed);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(sender.isAlive());
    EXPECT_EQ(checkSender(sender, "identifier \"x\"").error().number, code_signing::noSuchCode);
  }
}

}  // namespace
}  // namespace platform::ipc
