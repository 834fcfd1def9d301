// The helper's central object: every event of an admitted client arrives here.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/HXLog.h"
#include "platform/ipc/service.h"
#include "platform/process/child_task.h"

/// Confined to the main queue; nothing in it is locked. One source file per concern implements it.
class BRHMain : public HXLogging<BRHMain> {
 public:
  /// The one instance.
  static BRHMain& sharedInstance();

  /// Handles an event of an admitted connection: answers a request, or cleans up after a lost client.
  /// (BRHMain_dispatch)
  void handleXPCEvent(platform::ipc::Connection& connection, const platform::ipc::Event& event);

  /// Carries out a JSON command of a client, and returns the reply. Throws nothing. (BRHMain_commands)
  boost::json::object execCommand(const boost::json::object& request, const platform::ipc::Connection& client);

  /// Writes the proxies of the network services that a "set-proxy" request names, and keeps the list of services that
  /// are to be cleaned up. False when anything failed; the other services are written all the same.
  /// (BRHMain_network_settings)
  bool applyProxySettings(const boost::json::object& request);

  /// Switches the proxies off of every service in the list; forgets the list when all of it succeeded.
  /// (BRHMain_network_settings)
  void cleanupProxySettings();

  /// Stops the DHCP server child, if there is one: by SIGTERM, after a second by SIGKILL. Returns when it has ended.
  /// (BRHMain_child_tasks)
  void stopDHCP();

  /// Launches the main application again, if it is still the signed one; a failure is logged. (BRHMain_supervision)
  void launchMainApplicationWithArguments(const std::vector<std::string>& arguments);

  /// Has the system's DNS responder drop its cache. (BRHMain_power)
  void flushSystemDNS();

  /// Executable of the client admitted last; absent before the first.
  const std::optional<std::string>& mainAppImagePath() const { return _mainAppImagePath; }
  void setMainAppImagePath(std::string path) { _mainAppImagePath = std::move(path); }

 private:
  void handleRequest(const platform::ipc::Message& request, const platform::ipc::Connection& client);
  void handleRawCommand(const std::string& command, const platform::ipc::Message& request,
                        const platform::ipc::Connection& client);
  void processLookup(const platform::ipc::Message& request, const platform::ipc::Connection& client);
  void raDetect(const platform::ipc::Message& request);
  void dhcpDiscover(const boost::json::object& command, const platform::ipc::Message& request);
  void cleanUpAfterLostClient();

  /// Carries out one command; returns the reply.
  using Command = boost::json::object(const boost::json::object& request, const platform::ipc::Connection& client);
  Command version, stop, startWatchdog, stopWatchdog;  // BRHMain_commands
  Command setProxy, setStaticIP;                       // BRHMain_network_settings
  Command startDHCP, stopAllDHCP, startSpindump;       // BRHMain_child_tasks
  Command defunctRestart;                              // BRHMain_supervision
  Command preventSleepTemporarily;                     // BRHMain_power

  void killOwnerOfDHCPPort();
  void dhcpdCompleted(const platform::ChildTask* task);
  void spindumpCompleted();
  void relaunchAfterLostClient();
  void holdAssertion(const char* type, const char* nameSuffix, const char* whatFailed);

  std::shared_ptr<platform::ChildTask> _spindumpTask;
  std::shared_ptr<platform::ChildTask> _dhcpdTask;
  std::optional<std::vector<std::string>> _serviceProxySettingsChanged;  ///< IDs, without duplicates
  bool _watchdogStarted = false;
  double _watchdogLastTime = 0;  ///< seconds of platform::continuousSeconds()
  std::optional<std::string> _mainAppImagePath;
};
