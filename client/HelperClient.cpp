#include "client/HelperClient.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <array>
#include <boost/json.hpp>
#include <charconv>

#include "build_constants.h"
#include "platform/ipc/client.h"

namespace brimo {

namespace ipc = platform::ipc;
namespace json = boost::json;

namespace {

constexpr std::size_t addressSize = 128;

/// The socket address of a text, in the layout that messages carry (docs/protocol.md).
ipc::Data socketAddress(const std::string& text) {
  auto invalid = [&] {
    return std::invalid_argument(
        fmt::format("\"{}\" is not an address and port: write 127.0.0.1:80 or [::1]:80", text));
  };
  auto colon = text.rfind(':');
  if (colon == text.npos) throw invalid();
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  auto [rest, error] = std::from_chars(text.data() + colon + 1, end, port);
  if (error != std::errc() || rest != end) throw invalid();

  std::string host = text.substr(0, colon);
  bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  ipc::Data address(addressSize);
  address[0] = bracketed ? 28 : 16;
  address[1] = bracketed ? 30 : 2;
  address[2] = static_cast<std::uint8_t>(port >> 8);
  address[3] = static_cast<std::uint8_t>(port & 0xFF);
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (inet_pton(bracketed ? AF_INET6 : AF_INET, host.c_str(), address.data() + (bracketed ? 8 : 4)) != 1)
    throw invalid();
  return address;
}

void throwError(const json::object& reply) {
  if (const auto* error = reply.if_contains("error"); error && error->is_string()) {
    throw HelperError(std::string(error->get_string()));
  }
}

}  // namespace

class HelperClient::Connection {
 public:
  Connection() {
    auto connection = ipc::ClientConnection::connect(HelperServiceName);
    if (!connection) throw HelperUnreachable(connection.error().what());
    connection_ = std::move(*connection);
  }

  ipc::Dictionary send(const ipc::Dictionary& request) {
    auto reply = connection_->sendWithReply(request);
    // The first request is what has the helper look at the whole bundle.
    if (!reply && !admitted_) {
      throw HelperUnreachable(
          "the helper refused this application's bundle, or (macOS) is not installed: the executable and its "
          "frameworks must be signed, and (Linux) only root may be able to write them");
    }
    if (!reply) throw HelperUnreachable("the helper closed the connection");
    admitted_ = true;
    return std::move(*reply);
  }

  /// Whether the connection ends in place of a reply.
  bool endsUpon(const ipc::Dictionary& request) { return !connection_->sendWithReply(request); }

 private:
  std::unique_ptr<ipc::ClientConnection> connection_;
  bool admitted_ = false;  // a request has been answered
};

HelperClient::HelperClient() : connection_(std::make_unique<Connection>()) {}
HelperClient::HelperClient(HelperClient&&) noexcept = default;
HelperClient& HelperClient::operator=(HelperClient&&) noexcept = default;
HelperClient::~HelperClient() = default;

json::object HelperClient::json(std::string_view text) {
  auto reply = connection_->send({{"json", ipc::Data(text.begin(), text.end())}});
  const auto* data = reply.get<ipc::Data>("json");
  boost::system::error_code error;
  auto value = data ? json::parse({reinterpret_cast<const char*>(data->data()), data->size()}, error) : json::value();
  if (error || !value.is_object()) throw HelperError("the helper's reply is not a JSON object");
  return std::move(value.get_object());
}

json::object HelperClient::command(const json::object& command) {
  auto reply = json(json::serialize(command));
  throwError(reply);
  return reply;
}

std::int64_t HelperClient::version() {
  auto reply = command({{"command", "version"}});
  const auto* version = reply.if_contains("version");
  if (!version || !version->is_int64()) throw HelperError("the helper's reply has no version");
  return version->get_int64();
}

std::optional<SocketOwner> HelperClient::processLookup(bool udp, const std::string& address) {
  auto reply = connection_->send({{"command", "process-lookup"}, {"udp", udp}, {"address", socketAddress(address)}});
  if (const auto* error = reply.get<std::string>("error")) throw HelperError(*error);
  const auto* pid = reply.get<std::int64_t>("pid");
  if (!pid) return std::nullopt;
  SocketOwner owner{.pid = static_cast<std::int32_t>(*pid), .path = {}};
  if (const auto* path = reply.get<std::string>("path")) owner.path = *path;
  return owner;
}

std::vector<std::string> HelperClient::dhcpDiscover(const std::string& interface) {
  auto reply = command({{"command", "dhcp-discover"}, {"interface", interface}});
  const auto* addresses = reply.if_contains("serverAddresses");
  auto list = addresses ? json::try_value_to<std::vector<std::string>>(*addresses) : json::error::exception;
  if (!list) throw HelperError("the helper's reply has no list of servers");
  return *list;
}

std::optional<RouterAdvertisement> HelperClient::raDetect(const std::string& interface) {
  auto reply = connection_->send({{"command", "ra-detect"}, {"interface", interface}});
  if (const auto* error = reply.get<std::string>("error")) throw HelperError(*error);
  const auto* data = reply.get<ipc::Data>("data");
  const auto* address = reply.get<ipc::Data>("addr");
  if (!data || !address) return std::nullopt;
  auto advertisement = decodeRouterAdvertisement(*data, *address);
  if (!advertisement) throw HelperError("the router's advertisement is malformed");
  return advertisement;
}

void HelperClient::startWatchdog() {
  command({{"command", "start-watchdog"}});
}
void HelperClient::stopWatchdog() {
  command({{"command", "stop-watchdog"}});
}

void HelperClient::defunctRestart() {
  command({{"command", "defunct-restart"}});
  throw HelperError("the helper did not end this application");
}

void HelperClient::preventSleepTemporarily() {
  command({{"command", "prevent-sleep-temp"}});
}

void HelperClient::setProxies(const json::object& proxiesByService, std::optional<bool> cleanup) {
  json::object request{{"command", "set-proxy"}, {"payload", proxiesByService}};
  if (cleanup) request["cleanup"] = *cleanup;
  command(request);
}

void HelperClient::setStaticIP(const std::string& service, const std::string& address, const std::string& mask,
                               const std::string& router) {
  command(
      {{"command", "set-static-ip"}, {"serviceID", service}, {"address", address}, {"mask", mask}, {"router", router}});
}

std::int32_t HelperClient::startDHCPServer(const DHCPServerSettings& settings) {
  auto reply = command({{"command", "start-dhcpd"},
                        {"config", settings.configuration},
                        {"lease", settings.leases},
                        {"dhcpd", settings.executable},
                        {"interface", settings.interface},
                        {"output", settings.output},
                        {"pid", settings.pidFile}});
  const auto* pid = reply.if_contains("pid");
  if (!pid || !pid->is_int64()) throw HelperError("the helper's reply has no process ID");
  return static_cast<std::int32_t>(pid->get_int64());
}

void HelperClient::stopDHCPServer() {
  command({{"command", "stop-dhcpd"}});
}

void HelperClient::spindump(const std::string& path) {
  command({{"command", "spindump"}, {"path", path}});
}

void HelperClient::stop() {
  version();  // from here on, the end of the connection is the helper's, not a refusal
  constexpr std::string_view text = R"({"command":"stop"})";
  if (!connection_->endsUpon({{"json", ipc::Data(text.begin(), text.end())}})) {
    throw HelperError("the helper did not stop");
  }
}

}  // namespace brimo
