// The helper's central object. It receives every event of every admitted client.
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

/// Used on the main queue only, so it needs no locks. Each name in parentheses is the source file of the function.
class BRHMain : public HXLogging<BRHMain> {
 public:
  static BRHMain& sharedInstance();

  /// Handles an event of an admitted connection: a request, or an error, which counts as the loss of the client.
  /// (BRHMain_dispatch)
  void handleXPCEvent(platform::ipc::Connection& connection, const platform::ipc::Event& event);

  /// Carries out a client's JSON command, except "dhcp-discover", and returns the reply. Throws nothing. Does not
  /// return for "stop". (BRHMain_commands)
  boost::json::object execCommand(const boost::json::object& request, const platform::ipc::Connection& client);

  /// Sets the proxies of the network services in a "set-proxy" request and updates the list of services to clean up.
  /// Returns false when any step fails. If a service cannot be set, the others are set all the same.
  /// (BRHMain_network_settings)
  bool applyProxySettings(const boost::json::object& request);

  /// Switches off the proxies of every service in the list. Clears the list only if every step succeeds.
  /// (BRHMain_network_settings)
  void cleanupProxySettings();

  /// Stops the DHCP server child, if there is one: sends SIGTERM and, if it still runs one second later, SIGKILL.
  /// Returns when the child has ended, or five seconds after SIGKILL.
  /// (BRHMain_child_tasks)
  void stopDHCP();

  /// Relaunches the main application if its signature is still valid. Logs failures. (BRHMain_supervision)
  void launchMainApplicationWithArguments(const std::vector<std::string>& arguments);

  /// Makes the system's DNS responder drop its cache. (BRHMain_power)
  void flushSystemDNS();

  /// Path of the executable of the most recently admitted client; absent before the first.
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

  /// Carries out one command and returns the reply.
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
  std::optional<std::vector<std::string>> _serviceProxySettingsChanged;  ///< service IDs, without duplicates
  bool _watchdogStarted = false;
  double _watchdogLastTime = 0;  ///< platform::continuousSeconds() at the last relaunch by the watchdog
  std::optional<std::string> _mainAppImagePath;
};
