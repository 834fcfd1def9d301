#include "helper/admission.h"

#include "build_constants.h"
#include "foundation/HXLog.h"
#include "helper/BRHMain.h"
#include "platform/application/application.h"
#include "platform/base/utf8.h"
#include "platform/code_signing/code_signing.h"
#include "platform/process/process.h"

namespace ipc = platform::ipc;
namespace code_signing = platform::code_signing;

namespace {

constexpr char moduleName[] = "Helper";

/// Validates the sender of a connection's first message. On success `path` is its executable's.
code_signing::Status validateClient(const ipc::Message& message, std::int32_t peerPID, std::string& path) {
  if (auto status = ipc::checkSender(*message.sender, ClientRequirement); status != code_signing::success) {
    return status;
  }
  path = platform::executablePath(peerPID).value_or("");
  if (path.empty() || !platform::isUTF8(path)) return code_signing::noSuchCode;
  return BRHValidateMainApplication(path) ? code_signing::success : code_signing::requirementFailed;
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
  // The handler keeps the connection until the connection lets go of the handler.
  connection->setEventHandler(
      [connection, peerPID, validated = std::make_shared<bool>(false)](const ipc::Event& event) {
        BRHConnectionMessageHandler(connection, peerPID, *validated, event);
      });
  connection->resume();
}

void BRHConnectionMessageHandler(const std::shared_ptr<ipc::Connection>& connection, std::int32_t peerPID,
                                 bool& validated, const ipc::Event& event) {
  if (const auto* message = std::get_if<ipc::Message>(&event); message && !validated) {
    std::string path;
    auto status = validateClient(*message, peerPID, path);
    HXLog(moduleName, "Client validation status: {}", status);
    if (status != code_signing::success) {
      HXLog(moduleName, "Reject connection from PID {}", peerPID);
      connection->cancel();
      return;
    }
    validated = true;
    // Together: an application is launched again as the user who ran it.
    platform::noteRunningApplication(connection->peer(), connection->peerUserID());
    BRHMain::sharedInstance().setMainAppImagePath(path);
  }
  if (validated) BRHMain::sharedInstance().handleXPCEvent(*connection, event);
}

bool BRHValidateStaticCode(const std::string& path, const std::string& requirement) {
  return !path.empty() && !requirement.empty() && code_signing::checkFile(path, requirement) == code_signing::success;
}

std::string BRHBundleOfExecutable(std::string executablePath) {
  for (int component = 0; component < 3; ++component) {
    executablePath.resize(std::min(executablePath.rfind('/'), executablePath.size()));
  }
  return executablePath;
}

bool BRHValidateMainApplication(const std::string& executablePath) {
  if (executablePath.empty() || !BRHValidateStaticCode(executablePath, ClientRequirement)) return false;
  auto bundle = BRHBundleOfExecutable(executablePath);
  return BRHValidateStaticCode(bundle + "/Contents/Frameworks/Bugsnag.framework/Bugsnag", FrameworkRequirement) &&
         BRHValidateStaticCode(bundle + "/Contents/Frameworks/Sparkle.framework/Sparkle", FrameworkRequirement);
}
