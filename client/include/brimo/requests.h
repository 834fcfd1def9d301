// What the helper can be asked for. Each function makes a request, which HelperClient sends.
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

/// A request whose answer is a Value. Never changes, so it can be sent many times and by many threads.
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
  std::optional<std::string> path;  ///< of its executable; absent when the helper does not know it
};

/// The process that owns the socket bound to a local address; absent when there is none. The other end of a connection,
/// where it is known, makes the look-up exact and quick.
BRIMO_CLIENT_API Request<std::optional<SocketOwner>> processLookup(Transport transport, const SocketAddress& local,
                                                                   const std::optional<SocketAddress>& remote = {});

/// The DHCP servers that answer on an interface, by address, in order of arrival. Takes two seconds.
BRIMO_CLIENT_API Request<std::vector<std::string>> dhcpDiscover(const std::string& interface);

/// The first IPv6 router that answers on an interface; absent when none has in five seconds, or there is no such
/// interface.
BRIMO_CLIENT_API Request<std::optional<RouterAdvertisement>> raDetect(const std::string& interface);

struct ProxyServer {
  std::string host;  ///< a name or an address; IPv6 without brackets
  std::uint16_t port = 0;
};

/// The proxies of one network service. With nothing in it: none.
struct Proxies {
  std::optional<ProxyServer> http, https, socks;
  std::string automaticURL;             ///< of a proxy auto-configuration file; empty: none
  std::vector<std::string> exceptions;  ///< reached directly: hosts, "*.example.org", addresses, "10.0.0.0/8"
  bool exceptSimpleNames = false;       ///< names without a dot are reached directly
};

/// What becomes of proxies when a client leaves.
enum class ProxyLifetime {
  untilAClientLeaves,  ///< the helper takes them off when any client's connection ends, not only this one's
  permanent,           ///< they stay
  permanentForAll,     ///< they stay, and so do all that were to be taken off
};

/// Gives network services these proxies and no others. A service is named by its ID: on Linux the UUID of a
/// NetworkManager connection, on macOS the ID in the system's network preferences. An ID that the machine does not know
/// is stored and succeeds.
BRIMO_CLIENT_API Request<Done> setProxies(const std::map<std::string, Proxies>& proxiesByService,
                                          ProxyLifetime lifetime);

/// Gives a service a manual IPv4 configuration, all addresses in dotted form. Nothing undoes it.
BRIMO_CLIENT_API Request<Done> setStaticIP(const std::string& service, const std::string& address,
                                           const std::string& mask, const std::string& router);

/// Has the helper launch the application again, with the argument "-crashWatchDog", one second after any client's
/// connection has ended, at most once in 30 seconds. What is launched is the program that was admitted last; one that
/// still runs must bear a second start. The watchdog is then off until it is started anew.
BRIMO_CLIENT_API Request<Done> startWatchdog();
BRIMO_CLIENT_API Request<Done> stopWatchdog();

/// Has the helper kill this process and launch the application a second later with the argument "-crashDefunctRestart".
/// An answer is always an error.
BRIMO_CLIENT_API Request<Done> defunctRestart();

/// Keeps the machine from falling asleep while idle, for 30 seconds. Succeeds even where that is not possible.
BRIMO_CLIENT_API Request<Done> preventSleepTemporarily();

/// What the DHCP server of the application's bundle is started with. Paths are absolute.
struct DHCPServerSettings {
  std::string executable;  ///< the bundle's Contents/Applications/brimo-dhcpd, or a link to it
  std::string interface;
  std::string configuration;
  std::string leases;   ///< file of leases, which must exist
  std::string output;   ///< file that its output is appended to; must exist and belong to the user
  std::string pidFile;  ///< written by the server
};

/// Starts the DHCP server in place of a previous one, and kills whatever else holds UDP port 67. Answers its process
/// ID. It ends when any client's connection does.
BRIMO_CLIENT_API Request<std::int32_t> startDHCPServer(const DHCPServerSettings& settings);

/// Stops the DHCP server, and every process named brimo-dhcpd or brimo-ra.
BRIMO_CLIENT_API Request<Done> stopDHCPServer();

/// Has spindump sample this process into a file, unless it does so already. Answers at once.
BRIMO_CLIENT_API Request<Done> spindump(const std::string& path);

/// Ends the helper process, which undoes nothing. The next connection starts it again. This client makes that
/// connection with its next request, not by itself.
BRIMO_CLIENT_API Request<Done> stop();

/// Any JSON command, as UTF-8 text; answers the reply's text. A reply with an "error" is ErrorCode::rejected.
BRIMO_CLIENT_API Request<std::string> jsonCommand(const std::string& command);

}  // namespace v1
}  // namespace brimo
