// The requests that the helper accepts. Each function makes one, and HelperClient sends it.
#pragma once

#include <brimo/RouterAdvertisement.h>
#include <brimo/SocketAddress.h>
#include <brimo/result.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brimo {
inline namespace v1 {

namespace detail {
struct Message;
struct Reply;
}  // namespace detail

/// A request whose answer is a Value. Immutable, so it can be sent several times and on several threads.
template <class Value>
class Request {
 public:
  using Handler = std::function<void(Result<Value>)>;
  using Read = Result<Value> (*)(const detail::Reply&);

  Request(std::shared_ptr<const detail::Message> message, Read reader) : message_(std::move(message)), read_(reader) {}

  const std::shared_ptr<const detail::Message>& message() const { return message_; }
  Result<Value> read(const detail::Reply& reply) const { return read_(reply); }

 private:
  std::shared_ptr<const detail::Message> message_;
  Read read_;
};

/// Build number of the helper.
BRIMO_CLIENT_API Request<std::int64_t> version();

enum class Transport { tcp, udp };

struct SocketOwner {
  std::int32_t pid = 0;
  std::optional<std::string> path;  ///< of the executable; absent when the helper does not know it
};

/// The process that owns the socket bound to a local address; absent when there is none. For a connection, pass the
/// remote end too if it is known: this makes the look-up exact and fast.
BRIMO_CLIENT_API Request<std::optional<SocketOwner>> processLookup(Transport transport, const SocketAddress& local,
                                                                   const std::optional<SocketAddress>& remote = {});

/// The addresses of the DHCP servers that answer on an interface, in order of arrival. Takes two seconds.
BRIMO_CLIENT_API Request<std::vector<std::string>> dhcpDiscover(const std::string& interface);

/// The first IPv6 router that answers on an interface; absent when none answers within five seconds or the interface
/// does not exist.
BRIMO_CLIENT_API Request<std::optional<RouterAdvertisement>> raDetect(const std::string& interface);

struct ProxyServer {
  std::string host;  ///< a name or an address; IPv6 without brackets
  std::uint16_t port = 0;
};

/// The proxies of one network service. By default, no proxies.
struct Proxies {
  std::optional<ProxyServer> http, https, socks;
  std::string automaticURL;             ///< of a proxy auto-configuration file; empty if there is none
  std::vector<std::string> exceptions;  ///< reached without a proxy: hosts, "*.example.org", addresses, "10.0.0.0/8"
  bool exceptSimpleNames = false;       ///< no proxy for names without a dot
};

/// What happens to the proxies when a client disconnects.
enum class ProxyLifetime {
  untilAClientLeaves,  ///< the helper switches them off when any client disconnects, not only this one
  permanent,           ///< the proxies stay
  permanentForAll,     ///< the proxies stay, and so do all that were set with untilAClientLeaves before
};

/// Replaces the proxies of network services. The keys are the services' IDs: on Linux the UUIDs of NetworkManager
/// connections, on macOS the IDs in the system's network preferences. Proxies of an unknown ID are stored without an
/// error.
BRIMO_CLIENT_API Request<Done> setProxies(const std::map<std::string, Proxies>& proxiesByService,
                                          ProxyLifetime lifetime);

/// Gives a service a manual IPv4 configuration, which stays. All addresses are in dotted form.
BRIMO_CLIENT_API Request<Done> setStaticIP(const std::string& service, const std::string& address,
                                           const std::string& mask, const std::string& router);

/// Makes the helper relaunch the application with the argument "-crashWatchDog".
///
/// - The launch follows one second after any client's connection ends, at most once every 30 seconds.
/// - The helper launches the program that it admitted last, even if that still runs.
/// - The end of the connection also stops the watchdog, even if nothing is launched; start it again each time.
BRIMO_CLIENT_API Request<Done> startWatchdog();
BRIMO_CLIENT_API Request<Done> stopWatchdog();

/// Makes the helper kill this process and launch the application one second later with the argument
/// "-crashDefunctRestart". Any answer is therefore an error.
BRIMO_CLIENT_API Request<Done> defunctRestart();

/// Keeps an idle machine awake for 30 seconds. Succeeds even when the system does not allow that.
BRIMO_CLIENT_API Request<Done> preventSleepTemporarily();

/// Settings for the DHCP server in the application's bundle. Paths are absolute.
struct DHCPServerSettings {
  std::string executable;  ///< the bundle's Contents/Applications/brimo-dhcpd, or a link to it
  std::string interface;
  std::string configuration;
  std::string leases;   ///< lease file, which must exist
  std::string output;   ///< file that receives its output; must exist and belong to the user
  std::string pidFile;  ///< written by the server
};

/// Starts the DHCP server and returns its process ID. Stops a previous server first and kills one other process that
/// holds UDP port 67, if there is one. The server ends when any client's connection ends.
BRIMO_CLIENT_API Request<std::int32_t> startDHCPServer(const DHCPServerSettings& settings);

/// Stops the DHCP server and kills every process named brimo-dhcpd or brimo-ra.
BRIMO_CLIENT_API Request<Done> stopDHCPServer();

/// Makes spindump sample this process into a file, unless a spindump already runs. Returns at once. `path` is absolute.
BRIMO_CLIENT_API Request<Done> spindump(const std::string& path);

/// Ends the helper process without any clean-up. The next connection starts it again. This client does not reconnect by
/// itself afterwards: its next request connects.
BRIMO_CLIENT_API Request<Done> stop();

/// Sends any JSON command as UTF-8 text and returns the reply's text. A reply with an "error" is ErrorCode::rejected.
BRIMO_CLIENT_API Request<std::string> jsonCommand(const std::string& command);

}  // namespace v1
}  // namespace brimo
