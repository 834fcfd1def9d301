// The helper's central object: every event of an admitted client arrives here.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "foundation/HXLog.h"
#include "platform/ipc.h"

/// Confined to the main queue; nothing in it is locked. One source file per concern implements it.
class BRHMain : public HXLogging<BRHMain> {
 public:
  /// The one instance.
  static BRHMain& sharedInstance();

  /// Handles an event of an admitted connection: answers a request, or cleans up after a lost client.
  /// (BRHMain_dispatch)
  void handleXPCEvent(platform::ipc::Connection& connection, const platform::ipc::Event& event);

  /// Carries out a JSON command that the process `pid` sent, and returns the reply. Throws nothing. (BRHMain_commands)
  boost::json::object execCommand(const boost::json::object& request, std::int32_t pid);

  /// Executable of the client admitted last; absent before the first.
  const std::optional<std::string>& mainAppImagePath() const { return _mainAppImagePath; }
  void setMainAppImagePath(std::string path) { _mainAppImagePath = std::move(path); }

 private:
  void handleRequest(const platform::ipc::Message& request, std::int32_t pid);
  void handleRawCommand(const std::string& command, const platform::ipc::Message& request);
  void processLookup(const platform::ipc::Message& request);
  void raDetect(const platform::ipc::Message& request);
  void dhcpDiscover(const boost::json::object& command, const platform::ipc::Message& request);
  void cleanUpAfterLostClient();

  bool _watchdogStarted = false;
  std::optional<std::string> _mainAppImagePath;
};
