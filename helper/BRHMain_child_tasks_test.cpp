#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "build_constants.h"
#include "helper/command_fixture.h"
#include "platform/fake/preferences.h"
#include "tests/support/temporary_folder.h"

namespace {

using platform::fake::endChild;
using platform::fake::machine;
using testing::ElementsAre;
using testing::IsEmpty;
namespace json = boost::json;
namespace fs = std::filesystem;

const std::uint32_t user = platform::fake::ConnectionState().peerUserID;

/// Records what the helper logs and what it does to processes, in order.
class ChildTasksTest : public CommandTest {
 protected:
  ChildTasksTest() {
    fs::create_directories(folder / "Brimo.app/Contents/Applications");
    fs::create_directories(folder / "Brimo.app/Contents/MacOS");
    for (const auto& path : {executable, dhcpd, output}) std::ofstream(path) << "before\n";
    EXPECT_EQ(chown(output.c_str(), user, user), 0) << "run as root";
    machine().files[dhcpd] = platform::code_signing::success;
    helper.setMainAppImagePath(executable);
    HXSetLogLineHook([](const std::string& line) { machine().steps.push_back(line.substr(line.find("] ") + 2)); });
  }

  std::string execute(const json::object& command) {
    machine().steps.clear();
    return json::serialize(helper.execCommand(command, *platform::fake::makeConnection(peer)));
  }

  std::string start() { return execute(request); }

  std::string written() const {
    std::ifstream file(output);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::shared_ptr<platform::fake::ConnectionState> peer = std::make_shared<platform::fake::ConnectionState>();
  TemporaryFolder folder;
  std::string executable = folder / "Brimo.app/Contents/MacOS/Brimo";
  std::string dhcpd = folder / "Brimo.app/Contents/Applications/brimo-dhcpd";
  std::string output = folder / "output";
  json::object request{{"command", "start-dhcpd"}, {"config", "/c"},   {"lease", "/l"}, {"dhcpd", dhcpd},
                       {"interface", "eth0"},      {"output", output}, {"pid", "/p"}};
  std::string launch = "launch " + dhcpd + " -4 -f -d -cf /c -lf /l -pf /p eth0";
};

constexpr char started[] = R"({"result":"success","pid":1001})";

TEST_F(ChildTasksTest, DHCPServerIsStartedAndItsEndNoticed) {
  EXPECT_EQ(start(), started);
  EXPECT_THAT(machine().steps, ElementsAre("Start dhcpd", launch, "dhcpd started"));
  EXPECT_THAT(machine().checks, ElementsAre(testing::Pair(dhcpd, FrameworkRequirement)));
  EXPECT_EQ(written(), "before\noutput\n");
  machine().steps.clear();
  endChild(1001);
  helper.stopDHCP();
  EXPECT_THAT(machine().steps, ElementsAre("dhcpd completed"));
}

TEST_F(ChildTasksTest, EveryArgumentIsATextThatIsNotEmpty) {
  for (auto key : {"config", "lease", "dhcpd", "interface", "output", "pid"}) {
    for (const json::value& value : {json::value(), json::value(""), json::value(json::string_view("a\0b", 3))}) {
      auto damaged = request;
      damaged[key] = value;
      EXPECT_EQ(execute(damaged), R"({"error":"invalid dhcpd arguments"})") << key;
      EXPECT_THAT(machine().steps, IsEmpty());
    }
  }
  request.erase("pid");
  EXPECT_EQ(start(), R"({"error":"invalid dhcpd arguments"})");
}

TEST_F(ChildTasksTest, OnlyTheSignedServerOfTheBundleIsStarted) {
  const std::string refused = R"({"error":"invalid dhcpd executable"})";
  auto refuses = [&](const std::string& path) {
    request["dhcpd"] = path;
    EXPECT_EQ(start(), refused) << path;
    EXPECT_THAT(machine().steps, ElementsAre("Reject invalid dhcpd executable at " + path));
  };
  auto copy = folder / "Brimo.app/Contents/Applications/copy";
  std::ofstream(copy) << "copy";
  machine().files[copy] = machine().files["/brimo-dhcpd"] = platform::code_signing::success;
  for (const auto& path : {copy, folder / "missing", std::string("brimo-dhcpd"), std::string("/"),
                           std::string("/Contents/Applications/brimo-dhcpd")}) {
    refuses(path);
  }
  EXPECT_THAT(machine().checks, IsEmpty());  // the signature of a file at another path is not even checked

  machine().files[dhcpd] = platform::code_signing::unsignedCode;
  refuses(dhcpd);
  machine().files[dhcpd] = platform::code_signing::success;
  for (auto application : {"", "/bin/sh", "/missing/Brimo.app/Contents/MacOS/Brimo"}) {
    helper.setMainAppImagePath(application);
    refuses(dhcpd);
  }
}

TEST_F(ChildTasksTest, LinksAreResolvedOnBothSides) {
  auto link = folder / "link", bundle = folder / "Linked.app";
  fs::create_symlink(dhcpd, link);
  fs::create_directory_symlink(folder / "Brimo.app", bundle);
  request["dhcpd"] = link;
  EXPECT_EQ(start(), started);
  EXPECT_EQ(machine().steps[1], launch);
  helper.setMainAppImagePath(bundle + "/Contents/MacOS/Brimo");
  request["dhcpd"] = bundle + "/Contents/MacOS/.././/Applications/brimo-dhcpd";
  EXPECT_EQ(start(), R"({"result":"success","pid":1002})");

  fs::remove(executable);  // the application may be removed while it runs
  request["dhcpd"] = dhcpd + "//";
  EXPECT_EQ(start(), R"({"result":"success","pid":1003})");
}

TEST_F(ChildTasksTest, APreviousServerIsStoppedFirst) {
  start();
  EXPECT_EQ(start(), R"({"result":"success","pid":1002})");
  EXPECT_THAT(machine().steps, ElementsAre("Terminate previous dhcpd", "terminate 1001", "wait 1000 ms", "Start dhcpd",
                                           launch, "dhcpd started"));
  machine().childrenIgnoreTermination = true;
  EXPECT_EQ(start(), R"({"result":"success","pid":1003})");
  machine().steps.clear();
  endChild(1002);  // its termination handler has been removed
  helper.stopDHCP();
  EXPECT_THAT(machine().steps, ElementsAre("terminate 1003", "wait 1000 ms", "kill child 1003", "wait 5000 ms"));
}

TEST_F(ChildTasksTest, TheHolderOfPort67IsKilledIfItStillIsTheHolder) {
  using platform::SocketProtocol;
  machine().sockets = {{SocketProtocol::udp, {.localPort = 67, .isIPv4 = true, .localAddress = {}, .identity = 1}}};
  machine().owners[1] = 77;
  machine().executables[77] = "/usr/sbin/other";
  EXPECT_EQ(start(), started);
  EXPECT_THAT(machine().steps, ElementsAre("path 77", "Port 67 is already used: PID 77 /usr/sbin/other, kill",
                                           "find 77", "path 77", "kill 77", "Start dhcpd", launch, "dhcpd started"));
  machine().owners[1] = getpid();
  machine().executables[getpid()] = "/ourselves";
  start();
  EXPECT_THAT(machine().killed, ElementsAre(77));
}

TEST_F(ChildTasksTest, TheOutputFileMustBelongToTheClient) {
  const auto target = folder / "target";
  auto handOver = [](const std::string& path) { ASSERT_EQ(chown(path.c_str(), user, user), 0); };
  std::ofstream(target) << "target";
  handOver(target);
  auto isRefused = [&] {
    EXPECT_EQ(start(), R"({"error":"invalid dhcpd output path"})");
    EXPECT_THAT(machine().steps, testing::Not(testing::Contains(launch)));
  };
  for (const auto& plant : std::initializer_list<std::function<void()>>{
           [] {},
           [&] { fs::create_symlink(target, output); },
           [&] { fs::create_hard_link(target, output); },
           [&] { fs::create_directory(output), handOver(output); },
           [&] { mkfifo(output.c_str(), 0666), handOver(output); },
           [&] { std::ofstream(output) << "root's"; },
       }) {
    fs::remove(output);
    plant();
    isRefused();
  }
  handOver(output);
  request["output"] = "/proc/self/root" + output;  // the process that follows this path decides where it leads
  isRefused();
  request["output"] = output;
  peer->peerUserID = 1001;
  isRefused();
  peer->peerUserID = user;
  EXPECT_EQ(start(), started);
}

TEST_F(ChildTasksTest, AFailedLaunchIsReportedAndForgotten) {
  for (std::string reason : {"No such file", ""}) {
    machine().launchFailure = platform::Failure(0, reason);
    auto reply = [&](auto child) {
      return fmt::format(R"({{"error":"{}"}})", reason.empty() ? fmt::format("failed to start {}", child) : reason);
    };
    EXPECT_EQ(start(), reply("dhcpd"));
    EXPECT_EQ(machine().steps.back(), "Failed to start dhcpd: " + reason);
    EXPECT_EQ(execute({{"command", "spindump"}, {"path", "/x"}}), reply("spindump"));
    EXPECT_EQ(machine().steps.back(), "Failed to start spindump: " + reason);
  }
  machine().launchFailure.reset();
  EXPECT_EQ(start(), started);
  EXPECT_EQ(machine().steps.front(), "Start dhcpd");  // no previous server is terminated
}

TEST_F(ChildTasksTest, ALostClientIsCleanedUpAfterInOrder) {
  platform::fake::preferences() = {};
  machine().continuousSeconds = 3600;
  execute({{"command", "start-watchdog"}});
  execute({{"command", "set-proxy"}, {"payload", {{"A", json::object()}}}, {"cleanup", false}});
  start();
  machine().steps.clear();
  loseClient();
  EXPECT_THAT(machine().steps,
              ElementsAre("XPC connection closed", "cleanupProxySettings", "Remove service A proxy settings, result: 1",
                          "terminate 1001", "wait 1000 ms", "Main process died unexpectedly", "Relaunching"));
}

TEST_F(ChildTasksTest, StopKillsByNameToo) {
  start();
  EXPECT_EQ(execute({{"command", "stop-dhcpd"}}), R"({"result":"success"})");
  EXPECT_THAT(machine().steps,
              ElementsAre("terminate 1001", "wait 1000 ms", "sh killall -9 brimo-dhcpd", "sh killall -9 brimo-ra"));
}

TEST_F(ChildTasksTest, OneSpindumpAtATime) {
  for (const json::value& path : {json::value(), json::value("")}) {
    EXPECT_EQ(execute({{"command", "spindump"}, {"path", path}}), R"({"error":"invalid spindump path"})");
    EXPECT_THAT(machine().steps, IsEmpty());
  }
  const json::object spindump{{"command", "spindump"}, {"path", "/tmp/dump of it"}};
  EXPECT_EQ(execute(spindump), R"({"result":"success"})");
  EXPECT_THAT(machine().steps, ElementsAre("launch /usr/sbin/spindump 42 -o /tmp/dump of it", "spindump started"));
  EXPECT_EQ(execute(spindump), R"({"result":"success"})");
  EXPECT_THAT(machine().steps, IsEmpty());
  endChild(1001);
  EXPECT_THAT(machine().steps, ElementsAre("spindump completed"));
  execute(spindump);
  EXPECT_EQ(machine().steps.back(), "spindump started");
  endChild(1002);
}

}  // namespace
