#include "helper/external_process_watchdog.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "platform/fake/machine.h"
#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"

namespace {

using platform::fake::machine;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

TEST(WatchdogList, HoldsPairsOfANumberAndAPath) {
  using List = std::vector<BRHWatchedProcess>;
  EXPECT_EQ(BRHParseWatchedProcesses("[]"), List());
  EXPECT_EQ(BRHParseWatchedProcesses(R"([[2, "/a"], [2147483647, "/b c"], [9.0, "é"], [10.9, "/d"], [1e3, "/e"]])"),
            (List{{2, "/a"}, {2147483647, "/b c"}, {9, "é"}, {10, "/d"}, {1000, "/e"}}));
  EXPECT_EQ(BRHParseWatchedProcesses(R"([[1, "/a"], [1.99, "/a"], [0, "/a"], [-5, "/a"], [2147483648, "/a"],
      [4294967298, "/a"], [18446744073709551618, "/a"], [-4294967294, "/a"], [1e400, "/a"], ["5", "/a"], [true, "/a"],
      [null, "/a"], [5], [5, "/a", 1], [5, ""], [5, 5], [], 5, "5", {"5": "/a"}, [[5, "/a"]], [7, "/kept"]])"),
            (List{{7, "/kept"}}));
  for (auto text : {"", " ", "{}", R"({"pid": 5})", "5", "null", "[[5, \"/a\"]", "[[5, \"\xff\"]]"}) {
    EXPECT_EQ(BRHParseWatchedProcesses(text), std::nullopt) << text;
  }
}

class WatchdogTest : public testing::Test {
 protected:
  WatchdogTest() {
    machine() = {};
    machine().users = {{10, 1000}, {11, 1000}, {12, 0}, {13, 1000}};
    machine().executables = {{10, "/a"}, {11, "/other"}, {12, "/a"}, {14, "/a"}};
  }

  void put(const std::string& content, mode_t mode = 0600) {
    std::ofstream(path) << content;
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_EQ(chown(path.c_str(), 1000, 1000), 0) << "run as root";
  }

  /// Runs the sweep and returns whether it deleted the file.
  bool deletes() {
    machine().steps.clear();
    log.clear();
    BRHKillWatchedExternalProcesses(path);
    return !fs::exists(fs::symlink_status(path));
  }

  TemporaryFolder folder;
  std::string path = folder / "list.json";
  CapturedLog captured;
  std::vector<std::string>& log = captured.lines;
  static constexpr char list[] = R"([[10, "/a"]])";
};

TEST_F(WatchdogTest, KillsOnlyWhatIsListedAndHoldsItBeforeTheCheck) {
  put(R"([[10, "/a"], [11, "/a"], [12, "/a"], [13, "/a"], [14, "/a"], [15, "/a"], [10, "/A"], [1, "/a"]])");
  EXPECT_TRUE(deletes());
  EXPECT_THAT(machine().killed, ElementsAre(10));
  EXPECT_EQ(std::count(machine().steps.begin(), machine().steps.end(), "find 10"), 1);  // listed twice, looked up once
  machine().steps.resize(7);
  EXPECT_THAT(machine().steps,
              ElementsAre("find 10", "user 10", "path 10", "kill 10", "find 11", "user 11", "path 11"));
  EXPECT_THAT(log, IsEmpty());
  machine().users[12] = 0;
  put(R"([[12, "/x"], [10, "/a"], [12, "/a"]])");
  ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
  EXPECT_TRUE(deletes());
  EXPECT_THAT(machine().killed, ElementsAre(10, 12));
}

TEST_F(WatchdogTest, AMissingFileAndALinkAreIgnored) {
  EXPECT_TRUE(deletes());
  auto target = folder / "target";
  put(list);
  fs::rename(path, target);
  fs::create_symlink(target, path);
  EXPECT_FALSE(deletes());
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(machine().steps, IsEmpty());
}

TEST_F(WatchdogTest, AnUnsafeFileIsRefusedAndLeft) {
  auto refuses = [&] {
    EXPECT_FALSE(deletes());
    EXPECT_THAT(log, ElementsAre("[Helper] Reject unsafe external-process watchdog file"));
    EXPECT_THAT(machine().steps, IsEmpty());
    fs::remove(path);
  };
  for (mode_t mode : std::initializer_list<mode_t>{0664, 0646, 0620, 0602}) {
    put(list, mode);
    refuses();
  }
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  refuses();
  fs::create_directory(path);
  refuses();
  std::string text = list;
  text.resize(1'048'577, ' ');
  put(text);
  refuses();
  text.pop_back();
  put(text);
  EXPECT_TRUE(deletes());
  EXPECT_THAT(machine().killed, ElementsAre(10));
}

TEST_F(WatchdogTest, AFileShorterThanItsReportedSizeIsLeft) {
  BRHKillWatchedExternalProcesses("/sys/kernel/fscaps");  // stat() reports 4096 bytes, but it has fewer
  EXPECT_THAT(log, ElementsAre("[Helper] Failed to read external-process watchdog file"));
}

TEST_F(WatchdogTest, AnInvalidListIsDeletedToo) {
  put("[[10, \"/a\"]", 0444);
  EXPECT_TRUE(deletes());
  EXPECT_THAT(log, ElementsAre("[Helper] Invalid external-process watchdog payload"));
}

}  // namespace
