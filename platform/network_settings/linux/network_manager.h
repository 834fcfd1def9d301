// NetworkManager, over the system bus (nm-dbus-interface, nm-settings-dbus(5)).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/linux/system_bus.h"
#include "platform/network_settings/linux/projection.h"

namespace platform {

/// A connection to the bus of its own. Construction and the first call together wait for five seconds at most, and each
/// further call for five.
class NetworkManager {
 public:
  enum class Presence {
    there,   ///< a failure only concerns what the call was about
    silent,  ///< it does not answer, or the bus cannot be had now
    absent,  ///< it does not run, or there is no bus
  };
  /// Whether it can be had, as the last call found.
  Presence presence() const { return presence_; }

  using Path = std::string;  ///< of a D-Bus object

  NetworkManager() : deadline_(std::chrono::steady_clock::now() + patience) {}

  /// A network profile, in NetworkManager's words a connection.
  struct Connection {
    Path path;
    std::string uuid, name;
    ProxySetting proxy;
  };
  /// Those that this process may see.
  Result<std::vector<Connection>> connections();

  /// One for each UUID, absent when there is none of that UUID.
  Result<std::vector<Result<std::optional<Path>>>> findConnections(const std::vector<std::string>& uuids);

  /// The one that leads to the network at large; absent when there is none.
  Result<std::optional<Path>> primaryConnection();

  struct Device {
    Path path;
    std::string interface;
  };
  /// The devices that run a connection, by its path.
  Result<std::multimap<Path, Device>> activeDevices();

  /// New settings in the place of a connection's; what is absent stays.
  struct Change {
    std::optional<ProxySetting> proxy;
    std::optional<IPv4Setting> ipv4;
  };

  /// Changes connections, where they are stored; one result for each. What is active goes on as it is.
  Result<std::vector<Result<void>>> update(const std::vector<std::pair<Path, Change>>& changes);

  /// Changes what an active device uses, and nothing else of it; does nothing on one that is no longer active.
  Result<void> reapply(const Path& device, const Change& change);

 private:
  static constexpr std::chrono::seconds patience{5};  // a call takes some milliseconds

  // These throw a Failure.
  void connect();
  BusMessage makeCall(const Path& object, const char* interface, const char* method);
  [[noreturn]] void throwSilent(int number);
  void notePresence(const sd_bus_error* error);
  static BusMessage accepted(BusMessage reply);
  BusMessage call(BusMessage request);
  /// Makes several calls, some of them under way at a time. Returns the replies in the order of the calls; a refusal is
  /// one, too.
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
