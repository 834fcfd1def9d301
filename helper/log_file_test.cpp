#include "helper/log_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "foundation/HXLog.h"
#include "platform/fake/machine.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/this_machine.h"

namespace {

using platform::fake::machine;

class LogFileTest : public testing::Test {
 protected:
  LogFileTest() {
    machine() = {};
    HXSetLogDestinations(HXLogToFile);
    HXSetLogFilePath("");
  }
  ~LogFileTest() override { HXSetLogFilePath(""); }

  void put(const std::string& content, mode_t mode) {
    std::ofstream(path) << content;
    chmod(path.c_str(), mode);
  }

  /// Logs a line and returns the file's content without timestamps.
  std::string contentAfterOpening() {
    BRHOpenLogFile(path);
    HXLog("T", "line");
    std::ifstream file(path);
    std::string content((std::istreambuf_iterator<char>(file)), {}), end = "*[T] line\n";
    if (!content.ends_with(end)) return content;
    return content.erase(content.size() - end.size() - 27, 27);
  }

  mode_t mode() {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
  }

  TemporaryFolder folder;
  std::string path = folder / "BrimoHelper.log";
};

TEST_F(LogFileTest, MakesOrKeepsASafeFile) {
  EXPECT_EQ(contentAfterOpening(), "*[T] line\n");
  EXPECT_EQ(mode(), S_IFREG | 0644u);
  put("kept\n", 0600);
  EXPECT_EQ(contentAfterOpening(), "kept\n*[T] line\n");
  EXPECT_EQ(mode(), S_IFREG | 0644u);
  EXPECT_TRUE(machine().systemLog.empty());
}

TEST_F(LogFileTest, ReplacesWhatAnotherUserCouldHavePlanted) {
  const std::string target = folder / "target";
  for (const auto& plant : std::initializer_list<std::function<void()>>{
           [&] { put("group may write\n", 0664); },
           [&] { put("all may write\n", 0646); },
           [&] { std::filesystem::create_symlink(target, path); },
           [&] { std::filesystem::create_hard_link(target, path); },
           [&] { ASSERT_EQ(mkfifo(path.c_str(), 0644), 0); },
           [&] {
             put("another's\n", 0644);
             ASSERT_EQ(chown(path.c_str(), 1000, 1000), 0) << "run as root";
           },
       }) {
    std::filesystem::remove(path);
    std::ofstream(target) << "target\n";
    plant();
    EXPECT_EQ(contentAfterOpening(), "*[T] line\n");
    EXPECT_EQ(mode(), S_IFREG | 0644u);
    EXPECT_EQ(std::filesystem::file_size(target), 7u);
  }
  EXPECT_TRUE(machine().systemLog.empty());
}

TEST_F(LogFileTest, AFullDiskIsReportedOnceAndEndsTheFilesUse) {
  HXSetLogFilePath(path);
  {
    FullDisk full;
    HXLog("T", "one");
  }
  HXLog("T", "two");
  EXPECT_THAT(machine().systemLog, testing::ElementsAre("Failed to write log: File too large"));
  EXPECT_EQ(std::filesystem::file_size(path), 0u);
  HXSetLogFilePath(path);
  HXLog("T", "three");
  EXPECT_GT(std::filesystem::file_size(path), 0u);
}

TEST_F(LogFileTest, GoesOnWithoutAFileThatCannotBeMadeSafe) {
  std::filesystem::create_directory(path);
  for (const auto& unsafe : {path, folder / "none/log"}) {  // the second has no folder, so unlink() fails with ENOENT
    machine() = {};
    BRHOpenLogFile(unsafe);
    HXLog("T", "nowhere to go");
    EXPECT_THAT(machine().systemLog, testing::ElementsAre("Brimo Helper refused to open an unsafe log file"));
  }
}

}  // namespace
