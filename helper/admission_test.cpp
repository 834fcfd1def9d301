#include "helper/admission.h"

#include <gmock/gmock.h>

#include "build_constants.h"
#include "helper/BRHMain.h"
#include "platform/fake/ipc.h"
#include "platform/fake/machine.h"
#include "platform/system/refusal_log.h"
#include "tests/support/captured_log.h"

namespace {

using platform::fake::machine;
using testing::ElementsAre;
using testing::Pair;
namespace ipc = platform::ipc;
namespace fake = platform::fake;
namespace code_signing = platform::code_signing;

const std::string executable = "/Applications/Brimo.app/Contents/MacOS/Brimo";
const std::string bugsnag = "/Applications/Brimo.app/Contents/Frameworks/Bugsnag.framework/Bugsnag";
const std::string sparkle = "/Applications/Brimo.app/Contents/Frameworks/Sparkle.framework/Sparkle";

class AdmissionTest : public testing::Test {
 protected:
  AdmissionTest() {
    machine() = {};
    machine().executables[42] = executable;
    for (const auto& path : {executable, bugsnag, sparkle}) machine().files[path] = code_signing::success;
    BRHMain::sharedInstance().setMainAppImagePath("/none");
  }
  ~AdmissionTest() override { state->handler = nullptr; }  // the handler holds the connection

  void accept() { BRHListenerEventHandler(fake::makeConnection(state)); }

  /// Delivers a request and returns whether it was answered.
  bool answered() {
    bool replied = false;
    state->handler(fake::makeMessage({{"command", "x"}}, [&](const auto&) { replied = true; }));
    return replied;
  }

  std::shared_ptr<fake::ConnectionState> state = std::make_shared<fake::ConnectionState>();
  CapturedLog captured;
  std::vector<std::string>& log = captured.lines;
};

TEST_F(AdmissionTest, TheFirstMessageIsValidatedInOrderAndThenDispatched) {
  accept();
  EXPECT_EQ(state->requirement, ClientRequirement);
  EXPECT_TRUE(state->resumed);
  EXPECT_TRUE(answered());
  EXPECT_THAT(machine().checks, ElementsAre(Pair("", ClientRequirement), Pair(executable, ClientRequirement),
                                            Pair(bugsnag, FrameworkRequirement), Pair(sparkle, FrameworkRequirement)));
  EXPECT_EQ(BRHMain::sharedInstance().mainAppImagePath(), executable);
  EXPECT_THAT(machine().notedApplications, ElementsAre(Pair(42, 1000)));
  EXPECT_TRUE(answered());
  EXPECT_EQ(machine().notedApplications.size(), 1u);
  EXPECT_THAT(log, ElementsAre("[Helper] New connection: <fake connection>", "[Helper] Client validation status: 0",
                               "[BRHMain] Received raw command: x", "[BRHMain] Unknown raw command!",
                               "[BRHMain] Received raw command: x", "[BRHMain] Unknown raw command!"));
}

TEST_F(AdmissionTest, EveryFailedStepRejectsTheConnection) {
  struct Case {
    std::function<void()> spoil;
    std::int32_t status;
    std::size_t checks;
  };
  for (const auto& [spoil, status, checks] : std::initializer_list<Case>{
           {[] { machine().senderStatus = code_signing::unsignedCode; }, -67062, 1},
           {[] { machine().executables.clear(); }, -67065, 1},
           {[] { machine().executables[42] = "/bad \xFF path"; }, -67065, 1},
           {[] { machine().files[executable] = code_signing::signatureFailed; }, -67050, 2},
           {[] { machine().files.erase(bugsnag); }, -67050, 3},
           {[] { machine().files.erase(sparkle); }, -67050, 4},
       }) {
    auto intact = machine();
    spoil();
    *state = {};
    accept();
    log.clear();
    EXPECT_FALSE(answered());
    EXPECT_TRUE(state->cancelled);
    EXPECT_EQ(machine().checks.size(), checks);
    EXPECT_THAT(log, ElementsAre(fmt::format("[Helper] Client validation status: {}", status),
                                 "[Helper] Reject connection from PID 42"));
    // Nothing reacts to the end of a cancelled connection.
    state->handler(ipc::Error{.kind = ipc::Error::Kind::connectionInvalid, .description = ""});
    EXPECT_EQ(log.size(), 2u);
    EXPECT_EQ(BRHMain::sharedInstance().mainAppImagePath(), "/none");
    machine() = intact;
  }
}

TEST_F(AdmissionTest, AConnectionWithoutItsRequirementIsCancelled) {
  state->requirementStatus = -67052;
  accept();
  BRHListenerEventHandler(ipc::Error{.kind = ipc::Error::Kind::other, .description = "accept: no room"});
  EXPECT_TRUE(state->cancelled);
  EXPECT_FALSE(state->resumed);
  EXPECT_THAT(log, ElementsAre("[Helper] New connection: <fake connection>",
                               "[Helper] Failed to install peer signing requirement for PID 42: -67052",
                               "[Helper] Listener received a non-connection object: accept: no room"));
}

TEST(RefusalLog, HasOneLinePerMinuteForEachOfAtMost256Users) {
  machine() = {};
  static double now = 0;  // never goes back, because the log remembers its lines
  auto refuse = [&](double seconds, std::uint32_t user) {
    machine().continuousSeconds = now += seconds;
    machine().systemLog.clear();
    platform::logRefusal(user, 7, "why");
    return machine().systemLog.size();
  };
  EXPECT_EQ(refuse(60, 1), 1u);
  EXPECT_THAT(machine().systemLog, ElementsAre("Refused PID 7 of user 1: why"));
  EXPECT_EQ(refuse(59, 1), 0u);
  for (std::uint32_t user = 2; user <= 256; ++user) EXPECT_EQ(refuse(0, user), 1u) << user;
  EXPECT_EQ(refuse(0, 257), 0u);
  EXPECT_EQ(refuse(1, 1), 1u);
  EXPECT_EQ(refuse(0, 257), 0u);
  EXPECT_EQ(refuse(60, 257), 1u);
}

}  // namespace
