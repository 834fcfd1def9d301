#include "platform/process/process.h"

#include <linux/sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/process/linux/proc_files.h"
#include "platform/process/linux/process_folder.h"
#include "tests/support/linux/signed_files.h"

namespace platform {
namespace {

TEST(ExecutablePath, KeepsThePathOfAFileThatWasReplacedOrDeleted) {
  test::TemporaryFolder folder;
  for (const auto& path : {folder / "plain", folder / "odd (deleted)"}) {
    test::RunningCopy process(path);
    EXPECT_EQ(executablePath(process.pid()), path);
    std::filesystem::create_hard_link(path, path + " link");
    std::filesystem::remove(path);
    EXPECT_EQ(executablePath(process.pid()), path);
    std::filesystem::create_symlink(path + " link", path + " (deleted)");  // what the kernel calls the file
    EXPECT_EQ(executablePath(process.pid()), path);
    test::writeFile(path, "another");
    EXPECT_EQ(executablePath(process.pid()), path);
  }
}

/// Starts a process that waits to be killed, with a chosen PID if one is given.
pid_t startWaiting(
    pid_t wanted = 0, const std::function<void()>& prepare = [] {}) {
  int ready[2];
  EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
  clone_args arguments{};
  arguments.exit_signal = SIGCHLD;
  if (wanted != 0) {
    arguments.set_tid = reinterpret_cast<std::uint64_t>(&wanted);
    arguments.set_tid_size = 1;
  }
  auto pid = static_cast<pid_t>(syscall(SYS_clone3, &arguments, sizeof arguments));
  if (pid == 0) {
    prepare();
    if (write(ready[1], "", 1) != 1) _exit(1);
    while (true) pause();
  }
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "clone3");
  close(ready[1]);
  char byte;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  return pid;
}

void end(pid_t pid) {
  kill(pid, SIGKILL);
  EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
}

TEST(ProcessFiles, AreReadUpToOneMebibyte) {
  EXPECT_EQ(readProcessFile(getpid(), "comm"), "process_tests\n");
  EXPECT_EQ(readProcessFile(getpid(), "pagemap")->size(), 1'048'576u);
}

TEST(ProcessFolder, OnlyMountsOfTheProcessAndOfOurUserNamespaceAreSafe) {
  const FileDescriptor file(open("/", O_PATH | O_CLOEXEC)), onNoMount(memfd_create("", MFD_CLOEXEC));
  EXPECT_TRUE(ProcessFolder(getpid()).isOnSafeMount(file.get()));
  for (int other : {onNoMount.get(), -1}) EXPECT_FALSE(ProcessFolder(getpid()).isOnSafeMount(other));

  auto pid = startWaiting(0, [] {
    if (unshare(CLONE_NEWUSER) != 0) _exit(1);
  });
  const ProcessFolder apart(pid);
  EXPECT_TRUE(apart.sharesNamespace("pid"));
  EXPECT_FALSE(apart.sharesNamespace("user"));
  EXPECT_FALSE(apart.isOnSafeMount(file.get()));
  EXPECT_EQ(executablePath(pid), executablePath(getpid()));
  end(pid);
  EXPECT_FALSE(apart.isOnSafeMount(file.get()));
}

TEST(EffectiveUserID, IsFoundForAProcessThatIsNotDumpable) {
  auto pid = startWaiting(0, [] {
    if (setresuid(1001, 1002, 1003) != 0 || prctl(PR_SET_DUMPABLE, 0) != 0) _exit(1);
  });
  EXPECT_EQ(effectiveUserID(pid), 1002u);
  end(pid);
  for (auto nobody : {pid, 0}) EXPECT_EQ(effectiveUserID(nobody), std::nullopt);
}

TEST(Process, ReachesTheProcessThatWasFoundAndNoLaterOneWithItsPID) {
  auto pid = startWaiting();
  auto first = Process::find(pid);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->pid(), pid);
  EXPECT_FALSE(first->hasEnded());
  end(pid);
  EXPECT_TRUE(first->hasEnded());

  ASSERT_EQ(startWaiting(pid), pid);
  auto second = Process::find(pid);
  ASSERT_TRUE(second);
  first->kill();
  EXPECT_TRUE(first->hasEnded());
  EXPECT_FALSE(second->hasEnded());
  second->kill();
  siginfo_t status{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &status, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(status.si_status, SIGKILL);
  EXPECT_TRUE(second->hasEnded());  // it has ended before it is reaped
  EXPECT_EQ(executablePath(pid), std::nullopt);
  end(pid);
}

}  // namespace
}  // namespace platform
