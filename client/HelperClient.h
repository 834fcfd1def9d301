// What an application asks of the helper.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/router_advertisement.h"

namespace brimo {

/// The helper cannot be reached, refused the application, or left.
struct HelperUnreachable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The helper answered with an error; what() is its text.
struct HelperError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct SocketOwner {
  std::int32_t pid;
  std::optional<std::string> path;  ///< absent when the helper does not know it
};

/// What the DHCP server of the application's bundle is started with. Paths are absolute.
struct DHCPServerSettings {
  std::string executable;  ///< must be the bundle's Contents/Applications/brimo-dhcpd, or a link to it
  std::string interface;
  std::string configuration;
  std::string leases;   ///< file of leases, which must exist
  std::string output;   ///< file that its output is appended to; must exist and belong to the user
  std::string pidFile;  ///< written by the server
};

/// A connection to the helper. The helper undoes the work of a client that has left, so an application keeps one for as
/// long as it wants its settings to stay. Blocking; used by one thread at a time. Every call may throw the errors
/// above.
class HelperClient {
 public:
  HelperClient();
  HelperClient(HelperClient&&) noexcept;
  HelperClient& operator=(HelperClient&&) noexcept;
  ~HelperClient();

  /// Build number of the helper.
  std::int64_t version();

  /// The process that owns the TCP or UDP socket bound to a local address, "192.0.2.1:80" or "[2001:db8::1]:80"; absent
  /// when there is none. Throws std::invalid_argument for anything else.
  std::optional<SocketOwner> processLookup(bool udp, const std::string& address);

  /// The DHCP servers that answer on an interface, by address and in order of arrival. Takes two seconds.
  std::vector<std::string> dhcpDiscover(const std::string& interface);

  /// The first router that answers on an interface; absent when none did in five seconds, or there is no such
  /// interface.
  std::optional<RouterAdvertisement> raDetect(const std::string& interface);

  /// Has the helper watch, or no longer watch, the application.
  void startWatchdog();
  void stopWatchdog();

  /// Has the helper kill the application and launch it again a second later. Returns only by an error.
  void defunctRestart();

  /// Keeps the machine from falling asleep while idle, for 30 seconds.
  void preventSleepTemporarily();

  /// Writes proxies dictionaries (SCSchemaDefinitions.h) by service ID; an empty one switches a service's proxies off.
  /// With `cleanup` false the helper switches them off when a client leaves, with true it forgets all that it was to
  /// switch off, absent they stay as they are.
  void setProxies(const boost::json::object& proxiesByService, std::optional<bool> cleanup);

  /// Gives a service a manual IPv4 configuration, all addresses in dotted form. Nothing undoes it.
  void setStaticIP(const std::string& service, const std::string& address, const std::string& mask,
                   const std::string& router);

  /// Starts the DHCP server in place of a previous one, and kills whatever else holds UDP port 67. Returns its process
  /// ID. It ends with the connection.
  std::int32_t startDHCPServer(const DHCPServerSettings& settings);
  /// Stops the DHCP server, and every process named brimo-dhcpd or brimo-ra.
  void stopDHCPServer();

  /// Has spindump sample the application into a file, unless it does so already. Returns at once.
  void spindump(const std::string& path);

  /// Ends the helper process, and with it this connection. It does not clean up, and is started again with the next
  /// connection.
  void stop();

  /// Sends the text of a JSON command as it is, and returns its reply, which may hold an "error". Throws
  /// std::invalid_argument when it is too long to be sent.
  boost::json::object json(std::string_view text);

 private:
  boost::json::object command(const boost::json::object& command);

  class Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace brimo
