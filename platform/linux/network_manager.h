// NetworkManager, over the system bus (nm-dbus-interface, nm-settings-dbus(5)).
#pragma once

#include <systemd/sd-bus.h>

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/linux/network_projection.h"

namespace platform {

/// A connection to the bus of its own. Every call blocks for some seconds at most. Where NetworkManager cannot be had,
/// any call throws Unavailable; a failure that only concerns what a call is about is another std::runtime_error. Both
/// have a sentence for people.
class NetworkManager {
 public:
  struct Unavailable : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  /// It does not run, or there is no bus; otherwise it does not answer.
  struct Absent : Unavailable {
    using Unavailable::Unavailable;
  };

  using Path = std::string;  ///< of a D-Bus object

  NetworkManager();

  /// A network profile, in NetworkManager's words a connection.
  struct Connection {
    Path path;
    std::string uuid, name;
  };
  /// Those that this process may see.
  std::vector<Connection> connections();

  /// Absent when there is none of that UUID.
  std::optional<Path> findConnection(const std::string& uuid);

  struct Device {
    Path path;
    std::string interface;
  };
  /// The devices that run a connection, by its path.
  std::multimap<Path, Device> activeDevices();

  /// Changes and stores a connection's proxy and IPv4 settings, as far as they are given. What is active goes on as it
  /// is.
  void update(const Path& connection, const std::optional<ProxySetting>& proxy, const std::optional<IPv4Setting>& ipv4);

  /// Has an active device use its connection's settings as they are now; does nothing on one that is no longer active.
  void reapply(const Path& device);

 private:
  struct Release {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }  // nothing is sent without being waited for
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  };
  using Message = std::unique_ptr<sd_bus_message, Release>;

  Message makeCall(const Path& object, const char* interface, const char* method);
  Message call(const Message& request);
  std::vector<Path> list(const Path& object, const char* interface, const char* method);
  std::string property(const Path& object, const char* interface, const char* name);

  std::unique_ptr<sd_bus, Release> bus_;
};

}  // namespace platform
