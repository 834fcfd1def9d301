#include "helper/admission.h"

#include "build_constants.h"
#include "foundation/HXLog.h"
#include "helper/BRHMain.h"
#include "platform/application/application.h"
#include "platform/base/utf8.h"
#include "platform/code_signing/code_signing.h"
#include "platform/process/process.h"
#include "platform/system/refusal_log.h"

namespace ipc = platform::ipc;
namespace code_signing = platform::code_signing;

namespace {

constexpr char moduleName[] = "Helper";

/// Validates the sender of a connection's first message and returns the path of its executable. The number of a Failure
/// is a code_signing::Status.
platform::Result<std::string> validateClient(const ipc::Message& message, std::int32_t peerPID) {
  if (auto sender = ipc::checkSender(*message.sender, ClientRequirement); !sender) return sender.error();
  auto path = platform::executablePath(peerPID).value_or("");
  if (path.empty() || !platform::isUTF8(path)) {
    return platform::Failure(code_signing::noSuchCode, "the path of its executable cannot be found");
  }
  if (auto application = BRHValidateMainApplication(path); !application) {
    return platform::Failure(code_signing::requirementFailed, application.error().what());
  }
  return path;
}

}  // namespace

void BRHListenerEventHandler(const ipc::ListenerEvent& object) {
  const auto* accepted = std::get_if<std::shared_ptr<ipc::Connection>>(&object);
  if (!accepted) {
    HXLog(moduleName, "Listener received a non-connection object: {}", std::get<ipc::Error>(object).description);
    return;
  }
  auto connection = *accepted;
  HXLog(moduleName, "New connection: {}", connection->description());
  auto peerPID = connection->peerPID();
  if (auto status = connection->setPeerCodeSigningRequirement(ClientRequirement); status != code_signing::success) {
    HXLog(moduleName, "Failed to install peer signing requirement for PID {}: {}", peerPID, status);
    connection->cancel();
    return;
  }
  // The handler keeps the connection alive until the connection releases the handler.
  connection->setEventHandler(
      [connection, peerPID, validated = std::make_shared<bool>(false)](const ipc::Event& event) {
        BRHConnectionMessageHandler(connection, peerPID, *validated, event);
      });
  connection->resume();
}

void BRHConnectionMessageHandler(const std::shared_ptr<ipc::Connection>& connection, std::int32_t peerPID,
                                 bool& validated, const ipc::Event& event) {
  if (const auto* message = std::get_if<ipc::Message>(&event); message && !validated) {
    auto path = validateClient(*message, peerPID);
    HXLog(moduleName, "Client validation status: {}", path ? code_signing::success : path.error().number);
    if (!path) {
      HXLog(moduleName, "Reject connection from PID {}", peerPID);
      platform::logRefusal(connection->peerUserID(), peerPID, path.error().what());
      connection->cancel();
      return;
    }
    validated = true;
    // The noted process and the path change together, so that the application is relaunched as the user who ran it.
    platform::noteRunningApplication(connection->peer(), connection->peerUserID());
    BRHMain::sharedInstance().setMainAppImagePath(*path);
  }
  if (validated) BRHMain::sharedInstance().handleXPCEvent(*connection, event);
}

platform::Result<void> BRHValidateStaticCode(const std::string& path, const std::string& requirement) {
  if (path.empty() || requirement.empty()) return platform::failureOf(EINVAL);
  return code_signing::checkFile(path, requirement);
}

std::string BRHBundleOfExecutable(std::string executablePath) {
  for (int component = 0; component < 3; ++component) {
    executablePath.resize(std::min(executablePath.rfind('/'), executablePath.size()));
  }
  return executablePath;
}

platform::Result<void> BRHValidateMainApplication(const std::string& executablePath) {
  if (auto main = BRHValidateStaticCode(executablePath, ClientRequirement); !main) return main;
  auto frameworks = BRHBundleOfExecutable(executablePath) + "/Contents/Frameworks/";
  for (const char* file : {"Bugsnag.framework/Bugsnag", "Sparkle.framework/Sparkle"}) {
    if (auto framework = BRHValidateStaticCode(frameworks + file, FrameworkRequirement); !framework) return framework;
  }
  return {};
}
