// NetworkManager, over the system bus (nm-dbus-interface, nm-settings-dbus(5)).
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/base/linux/system_bus.h"
#include "platform/network_settings/linux/projection.h"

namespace platform {

/// A connection to the bus of its own. The constructor and the first call together wait for five seconds at most, and
/// each further call for five. Where NetworkManager cannot be had, any call throws Unavailable; a failure that only
/// concerns what a call is about is another std::runtime_error. Both have a sentence for people.
class NetworkManager {
 public:
  struct Unavailable : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  /// It does not run, or there is no bus; otherwise it does not answer, or the bus cannot be had now.
  struct Absent : Unavailable {
    using Unavailable::Unavailable;
  };

  using Path = std::string;  ///< of a D-Bus object

  NetworkManager();

  /// A network profile, in NetworkManager's words a connection.
  struct Connection {
    Path path;
    std::string uuid, name;
    ProxySetting proxy;
  };
  /// Those that this process may see.
  std::vector<Connection> connections();

  /// Absent when there is none of that UUID.
  std::optional<Path> findConnection(const std::string& uuid);

  /// The one that leads to the network at large; absent when there is none.
  std::optional<Path> primaryConnection();

  struct Device {
    Path path;
    std::string interface;
  };
  /// The devices that run a connection, by its path.
  std::multimap<Path, Device> activeDevices();

  /// New settings in the place of a connection's; what is absent stays.
  struct Change {
    std::optional<ProxySetting> proxy;
    std::optional<IPv4Setting> ipv4;
  };

  /// Changes a connection, where it is stored. What is active goes on as it is.
  void update(const Path& connection, const Change& change);

  /// Changes what an active device uses, and nothing else of it; does nothing on one that is no longer active.
  void reapply(const Path& device, const Change& change);

 private:
  BusMessage makeCall(const Path& object, const char* interface, const char* method);
  BusMessage call(const BusMessage& request);
  std::vector<Path> list(const Path& object, const char* interface, const char* method);
  std::string property(const Path& object, const char* interface, const char* name);

  BusDeadline deadline_;
  SystemBus bus_;
};

}  // namespace platform
