#include "platform/processes.h"

#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/test_support.h"

namespace platform {
namespace {

/// The executable path of a process started as `path`, asked for after `change` was made to the file.
template <class Change>
std::optional<std::string> pathAfter(const std::string& path, Change change) {
  test::RunningCopy process(path);
  change();
  return executablePath(process.pid());
}

TEST(ExecutablePath, KeepsThePathOfAFileThatWasReplacedOrDeleted) {
  test::TemporaryFolder folder;
  EXPECT_EQ(pathAfter(folder / "plain", [] {}), folder / "plain");
  EXPECT_EQ(pathAfter(folder / "gone", [&] { std::filesystem::remove(folder / "gone"); }), folder / "gone");
  EXPECT_EQ(pathAfter(folder / "new", [&] {
              std::filesystem::remove(folder / "new");
              test::writeFile(folder / "new", "another");
            }),
            folder / "new");
  EXPECT_EQ(pathAfter(folder / "odd (deleted)", [] {}), folder / "odd (deleted)");
}

TEST(ExecutablePath, IsAbsentForWhatRunsNoFile) {
  EXPECT_EQ(executablePath(0), std::nullopt);
  EXPECT_EQ(executablePath(-1), std::nullopt);
  pid_t child = fork();
  if (child == 0) _exit(0);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  EXPECT_EQ(executablePath(child), std::nullopt);  // a zombie
  waitpid(child, nullptr, 0);
  EXPECT_EQ(executablePath(child), std::nullopt);
}

}  // namespace
}  // namespace platform
