#include "foundation/HXLog.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "platform/system/call_stack.h"
#include "tests/support/temporary_folder.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

struct Speaker : HXLogging<Speaker> {};
struct Renamed : HXLogging<Renamed> {
  static std::string HX_logModuleName() { return "Other"; }
};
template <class Argument>
struct Template : HXLogging<Template<Argument>> {};
struct Base : HXLogging<Base> {
  virtual ~Base() = default;
};
struct Derived : Base {};

class HXLogTest : public testing::Test {
 protected:
  HXLogTest() {
    HXSetLogDestinations(HXLogToFile);
    HXSetLogFilePath(path);
  }
  ~HXLogTest() override {
    HXSetLogLineHook(nullptr);
    HX_setLogAction(nullptr);
    HXSetLogEnabled(true);
    HXSetLogFilePath("");
  }

  std::vector<std::string> linesInFile() {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  TemporaryFolder folder;
  std::string path = folder / "log";
};

constexpr char stamp[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} ";

TEST_F(HXLogTest, LinesHaveTimestampThreadMarkModuleAndMessage) {
  HXLog("Helper", "Version: {}, Starting...", 618);
  std::thread([] { Speaker().HX_log("from {}", "elsewhere"); }).join();
  Renamed().HX_logWithLevel(20, "renamed");
  EXPECT_THAT(linesInFile(),
              ElementsAre(MatchesRegex(std::string(stamp) + "\\*\\[Helper\\] Version: 618, Starting\\.\\.\\."),
                          MatchesRegex(std::string(stamp) + " \\[Speaker\\] from elsewhere"),
                          MatchesRegex(std::string(stamp) + "\\*\\[Other\\] renamed")));
  EXPECT_THAT(HX_logStyleCurrentDate(), MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}"));
  EXPECT_THAT(HX_logStyleCurrentTime(), MatchesRegex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}"));
}

TEST_F(HXLogTest, AppendsToAnExistingFileAndFollowsNoLink) {
  HXLog("M", "first");
  HXSetLogFilePath(path);
  HXLog("M", "second");
  EXPECT_EQ(HXLogFilePath(), path);
  std::filesystem::create_symlink(path, folder / "link");
  HXSetLogFilePath(folder / "link");
  HXLog("M", "lost");
  EXPECT_EQ(linesInFile().size(), 2u);
}

TEST_F(HXLogTest, LinesGoWhereTheSettingsSay) {
  std::vector<std::string> hooked, acted;
  HXSetLogLineHook([&](const std::string& line) { hooked.push_back(line.substr(27)); });
  HXSetLogDestinations(HXLogToStderr);
  testing::internal::CaptureStderr();
  HXLog("M", "to stderr");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), MatchesRegex(std::string(stamp) + "\\*\\[M\\] to stderr\n"));
  EXPECT_TRUE(linesInFile().empty());

  HX_setLogAction([&](std::int8_t level, const std::string& module, const std::string& message) {
    acted.push_back(fmt::format("{} {} {}", level, module, message));
  });
  HX_log<Speaker>("default");
  HX_logWithLevel<Renamed>(50, "trace");
  Template<std::pair<int, Speaker>>().HX_log("of a template");
  static_cast<Base&&>(Derived()).HX_log("derived");
  HX_setLogAction(nullptr);
  HXSetLogDestinations(0);
  HX_log<Speaker>("normal again");
  HXSetLogEnabled(false);
  HXLog("M", "off");
  EXPECT_THAT(acted, ElementsAre("30 Speaker default", "50 Other trace",
                                 MatchesRegex("30 Template<std::pair<int,.*> > of a template"), "30 Derived derived"));
  EXPECT_THAT(hooked, ElementsAre("*[M] to stderr", "*[Speaker] normal again"));
}

TEST_F(HXLogTest, LinesOfManyThreadsStayWhole) {
  std::vector<std::string> hooked;
  HXSetLogLineHook([&](const std::string& line) { hooked.push_back(line); });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < 50; ++line) HXLog("M", "{}", std::string(200, static_cast<char>('a' + thread)));
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(hooked.size(), 400u);
  EXPECT_EQ(linesInFile(), hooked);
}

TEST_F(HXLogTest, OpeningAFileBlocksNoOtherThread) {
  auto fifo = folder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::thread opener([&] { HXSetLogFilePath(fifo); });  // waits for a reader
  auto lines = std::async(std::launch::async, [] {
    for (int line = 0; line < 200; ++line, std::this_thread::yield()) HXLog("M", "meanwhile");
  });
  EXPECT_EQ(lines.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  std::ifstream reader(fifo);
  opener.join();
}

TEST_F(HXLogTest, AnUncaughtExceptionIsLoggedAndHandedOn) {
  auto die = [&] {
    std::set_terminate([] {
      std::fputs("previous handler\n", stderr);
      _exit(7);
    });
    HXInstallUncaughtExceptionHandler();
    HXInstallUncaughtExceptionHandler();  // the handler must not become its own predecessor
    HXSetLogDestinations(HXLogToFile | HXLogToStderr);
    std::thread([] { throw std::runtime_error("nobody catches this"); }).join();
  };
  EXPECT_EXIT(
      die(), testing::ExitedWithCode(7),
      "\\[HXLogger\\] Uncaught Exception, description:std::runtime_error: nobody catches this, call stack:(.|\n)*"
      "previous handler");
}

TEST(HXCallStack, NamesFramesAndTheImage) {
  auto text = HXCallStackString();
  EXPECT_THAT(text, testing::HasSubstr("foundation_tests"));
  auto [slide, loadAddress] = platform::mainImage();
  EXPECT_EQ(text.substr(text.rfind(')')), fmt::format("), slide 0x{:x} load addr 0x{:x}", slide, loadAddress));
  Dl_info image;
  ASSERT_NE(dladdr(reinterpret_cast<void*>(HXLogCallStack), &image), 0);
  EXPECT_EQ(reinterpret_cast<void*>(loadAddress), image.dli_fbase);
  EXPECT_EQ((loadAddress - slide) % (1ULL << 32), 0u);  // linked for address 0 on Linux, for 4 GiB on macOS
  EXPECT_THAT(HX_exceptionReport(std::make_exception_ptr(std::out_of_range("where"))),
              testing::StartsWith("std::out_of_range: where\nCall stack: ("));
}

}  // namespace
