// Admits the correctly signed main application and refuses all other clients.
//
// The platform delivers messages only from peers whose running image satisfies ClientRequirement. On the first message
// of a connection, the helper also validates the sender, the executable on disk and two frameworks in its bundle.
// All functions run on the main queue.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/base/result.h"
#include "platform/ipc/service.h"

/// Handles events of the listener. Each new connection gets BRHConnectionMessageHandler as its event handler.
void BRHListenerEventHandler(const platform::ipc::ListenerEvent& object);

/// Handles an event of a connection. `validated` belongs to the connection and starts as false; the first valid message
/// sets it.
void BRHConnectionMessageHandler(const std::shared_ptr<platform::ipc::Connection>& connection, std::int32_t peerPID,
                                 bool& validated, const platform::ipc::Event& event);

/// Checks that the signature of the file at the path satisfies the requirement.
platform::Result<void> BRHValidateStaticCode(const std::string& path, const std::string& requirement);

/// The bundle that contains an executable: "/Name.app" for "/Name.app/Contents/MacOS/Name". The path must be absolute.
/// Empty when it has too few components.
std::string BRHBundleOfExecutable(std::string executablePath);

/// Checks the signatures of the executable at the path and of the frameworks Bugsnag and Sparkle in its bundle. A
/// failure names the file.
platform::Result<void> BRHValidateMainApplication(const std::string& executablePath);
