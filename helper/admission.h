// Who may speak to the helper: the correctly signed main application and nobody else.
//
// The system is told to let through only peers whose running image satisfies ClientRequirement. The first message of a
// connection is then validated once more: its sender, the executable on disk, and two frameworks of its bundle.
// Everything here runs on the main queue.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/base/result.h"
#include "platform/ipc/service.h"

/// Handles the events of the listener: prepares each new connection, and has BRHConnectionMessageHandler hear it.
void BRHListenerEventHandler(const platform::ipc::ListenerEvent& object);

/// Handles an event of a connection. `validated` is the connection's own, false before its first message passed.
void BRHConnectionMessageHandler(const std::shared_ptr<platform::ipc::Connection>& connection, std::int32_t peerPID,
                                 bool& validated, const platform::ipc::Event& event);

/// Whether the file at the path is signed as the requirement says; if not, why.
platform::Result<void> BRHValidateStaticCode(const std::string& path, const std::string& requirement);

/// The bundle around an application's executable: "/Name.app" of "/Name.app/Contents/MacOS/Name". Empty when the path
/// is too short to lie in one.
std::string BRHBundleOfExecutable(std::string executablePath);

/// Whether the executable at the path and the frameworks Bugsnag and Sparkle of the bundle around it are signed as they
/// must be; if not, which is not, and why.
platform::Result<void> BRHValidateMainApplication(const std::string& executablePath);
