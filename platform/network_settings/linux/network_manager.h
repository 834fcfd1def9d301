// A client of NetworkManager over the system bus (nm-dbus-interface, nm-settings-dbus(5)).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/linux/system_bus.h"
#include "platform/network_settings/linux/projection.h"

namespace platform {

/// A private connection to the bus. Calls fail when five seconds have passed since the last reply of NetworkManager or,
/// before the first reply, since the construction.
class NetworkManager {
 public:
  enum class Presence {
    there,   ///< it answers; a failure concerns only the call itself
    silent,  ///< it does not answer, or the bus cannot be reached now
    absent,  ///< it is not running, or there is no bus
  };
  /// The presence of NetworkManager at the last call.
  Presence presence() const { return presence_; }

  using Path = std::string;  ///< of a D-Bus object

  NetworkManager() : deadline_(std::chrono::steady_clock::now() + patience) {}

  /// A network profile; NetworkManager calls it a connection.
  struct Connection {
    Path path;
    std::string uuid, name;
    ProxySetting proxy;
  };
  /// The connections visible to this process.
  Result<std::vector<Connection>> connections();

  /// The connection of each UUID, in order; absent if there is none.
  Result<std::vector<Result<std::optional<Path>>>> findConnections(const std::vector<std::string>& uuids);

  /// The connection that carries the default route; absent if there is none.
  Result<std::optional<Path>> primaryConnection();

  struct Device {
    Path path;
    std::string interface;
  };
  /// The active devices, by the path of their connection.
  Result<std::multimap<Path, Device>> activeDevices();

  /// New settings for a connection; absent ones stay unchanged.
  struct Change {
    std::optional<ProxySetting> proxy;
    std::optional<IPv4Setting> ipv4;
  };

  /// Changes stored connections; one result for each. Active devices keep their settings until reapply().
  Result<std::vector<Result<void>>> update(const std::vector<std::pair<Path, Change>>& changes);

  /// Changes settings of an active device and nothing else. Does nothing if the device is no longer active.
  Result<void> reapply(const Path& device, const Change& change);

 private:
  static constexpr std::chrono::seconds patience{5};  // a call normally takes milliseconds

  // These throw a Failure.
  void connect();
  BusMessage makeCall(const Path& object, const char* interface, const char* method);
  [[noreturn]] void throwSilent(int number);
  void notePresence(const sd_bus_error* error);
  static BusMessage accepted(BusMessage reply);
  BusMessage call(BusMessage request);
  /// Makes several calls, some of them at the same time. Returns the replies in the order of the calls, including error
  /// replies.
  std::vector<BusMessage> callTogether(const std::vector<BusMessage>& requests);
  std::vector<Path> list(const Path& object, const char* interface, const char* method);
  Connection readConnection(const Path& path);
  Result<std::vector<Result<std::optional<Path>>>> findAmongAll(const std::vector<std::string>& uuids);
  std::string property(const Path& object, const char* interface, const char* name);

  BusDeadline deadline_;
  SystemBus bus_;
  Presence presence_ = Presence::there;
};

}  // namespace platform
