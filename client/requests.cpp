#include <brimo/requests.h>

#include <algorithm>
#include <boost/json.hpp>

#include "client/message.h"
#include "client/router_advertisement.h"

namespace brimo {
inline namespace v1 {

namespace ipc = platform::ipc;
namespace json = boost::json;

using detail::Message;
using detail::Reply;

namespace {

constexpr std::chrono::seconds dhcpTime{2}, routerTime{5};

Error rejected(std::string text) {
  return {ErrorCode::rejected, std::move(text)};
}

template <class Value>
Request<Value> makeRequest(Message message, typename Request<Value>::Read read) {
  return {std::make_shared<const Message>(std::move(message)), read};
}

ipc::Dictionary jsonDictionary(std::string_view text) {
  return {{"json", ipc::Data(text.begin(), text.end())}};
}

Message jsonMessage(const json::object& command) {
  return {.dictionary = jsonDictionary(json::serialize(command))};
}

// --- Replies --------------------------------------------------------------------------------------------------------

/// The reply's dictionary. Fails when there is no reply or the reply contains an error.
Result<ipc::Dictionary> readDictionary(const Reply& reply) {
  if (const auto* error = std::get_if<Error>(&reply)) return *error;
  const auto& dictionary = std::get<ipc::Dictionary>(reply);
  if (const auto* error = dictionary.get<std::string>("error")) return rejected(*error);
  return dictionary;
}

/// The object in the reply to a JSON command. Fails when readDictionary() fails, when the reply contains no JSON
/// object, or when the object contains an error.
Result<json::object> readObject(const Reply& reply) {
  auto dictionary = readDictionary(reply);
  if (!dictionary) return dictionary.error();
  const auto* data = dictionary->get<ipc::Data>("json");
  boost::system::error_code problem;
  auto value = data ? json::parse({reinterpret_cast<const char*>(data->data()), data->size()}, problem) : json::value();
  if (problem || !value.is_object()) return rejected("the helper's reply is not a JSON object");
  auto& object = value.get_object();
  if (const auto* error = object.if_contains("error")) {
    return rejected(error->is_string() ? std::string(error->get_string()) : json::serialize(*error));
  }
  return std::move(object);
}

Result<Done> readDone(const Reply& reply) {
  auto object = readObject(reply);
  if (!object) return object.error();
  return Done();
}

Result<std::int64_t> readNumber(const Reply& reply, const char* key) {
  auto object = readObject(reply);
  if (!object) return object.error();
  const auto* number = object->if_contains(key);
  if (!number || !number->is_int64()) return rejected(std::string("the helper's reply has no ") + key);
  return number->get_int64();
}

Result<std::int64_t> readVersion(const Reply& reply) {
  return readNumber(reply, "version");
}

Result<std::int32_t> readPID(const Reply& reply) {
  auto pid = readNumber(reply, "pid");
  if (!pid) return pid.error();
  return static_cast<std::int32_t>(*pid);
}

Result<std::string> readText(const Reply& reply) {
  auto object = readObject(reply);
  if (!object) return object.error();
  // Returns the text unchanged, so that numbers keep their digits.
  const auto& data = *std::get<ipc::Dictionary>(reply).get<ipc::Data>("json");
  return std::string(data.begin(), data.end());
}

Result<std::optional<SocketOwner>> readOwner(const Reply& reply) {
  auto dictionary = readDictionary(reply);
  if (!dictionary) return dictionary.error();
  const auto* pid = dictionary->get<std::int64_t>("pid");
  if (!pid) return std::optional<SocketOwner>();
  SocketOwner owner{static_cast<std::int32_t>(*pid), {}};
  if (const auto* path = dictionary->get<std::string>("path")) owner.path = *path;
  return std::optional(std::move(owner));
}

Result<std::vector<std::string>> readServers(const Reply& reply) {
  auto object = readObject(reply);
  if (!object) return object.error();
  const auto* addresses = object->if_contains("serverAddresses");
  auto list = addresses ? json::try_value_to<std::vector<std::string>>(*addresses) : json::error::exception;
  if (!list) return rejected("the helper's reply has no list of servers");
  return *list;
}

Result<std::optional<RouterAdvertisement>> readRouter(const Reply& reply) {
  auto dictionary = readDictionary(reply);
  if (!dictionary) return dictionary.error();
  const auto* data = dictionary->get<ipc::Data>("data");
  const auto* address = dictionary->get<ipc::Data>("addr");
  if (!data || !address) return std::optional<RouterAdvertisement>();
  auto advertisement = decodeRouterAdvertisement(*data, *address);
  if (!advertisement) return rejected("the router's advertisement is malformed");
  return advertisement;
}

/// Reads the reply to "stop" or "defunct-restart", which the helper answers only on failure. After "stop" the
/// connection ends, which Session reports as an empty dictionary; "defunct-restart" ends this process.
Result<Done> readEnd(const Reply& reply) {
  if (const auto* error = std::get_if<Error>(&reply)) return *error;
  if (std::get<ipc::Dictionary>(reply).size() == 0) return Done();
  auto done = readDone(reply);
  return done ? rejected("the helper did not carry out the command") : done;
}

// --- Values ---------------------------------------------------------------------------------------------------------

/// The address in the BSD layout that messages use (docs/protocol.md).
ipc::Data addressData(const SocketAddress& address) {
  constexpr std::size_t size = 128;
  ipc::Data data(size);
  data[0] = address.isIPv6 ? 28 : 16;
  data[1] = address.isIPv6 ? 30 : 2;
  data[2] = static_cast<std::uint8_t>(address.port >> 8);
  data[3] = static_cast<std::uint8_t>(address.port & 0xFF);
  std::copy_n(address.bytes.begin(), address.isIPv6 ? 16 : 4, data.begin() + (address.isIPv6 ? 8 : 4));
  const auto* scope = reinterpret_cast<const std::uint8_t*>(&address.scope);
  if (address.isIPv6) std::copy_n(scope, sizeof address.scope, data.begin() + 24);
  return data;
}

/// A proxies dictionary with the keys of macOS (SCSchemaDefinitions.h).
json::object proxiesObject(const Proxies& proxies, std::optional<std::string>& problem) {
  json::object object;
  auto add = [&](const std::string& kind, const std::optional<ProxyServer>& server) {
    if (!server) return;
    if (server->host.empty() || server->port == 0) problem = "a proxy needs a host and a port";
    object[kind + "Enable"] = 1;
    object[kind + "Proxy"] = server->host;
    object[kind + "Port"] = server->port;
  };
  add("HTTP", proxies.http);
  add("HTTPS", proxies.https);
  add("SOCKS", proxies.socks);
  if (!proxies.automaticURL.empty()) {
    object["ProxyAutoConfigEnable"] = 1;
    object["ProxyAutoConfigURLString"] = proxies.automaticURL;
  }
  if (!proxies.exceptions.empty()) object["ExceptionsList"] = json::value_from(proxies.exceptions);
  if (proxies.exceptSimpleNames) object["ExcludeSimpleHostnames"] = 1;
  return object;
}

}  // namespace

// --- Requests -------------------------------------------------------------------------------------------------------

Request<std::int64_t> version() {
  return makeRequest<std::int64_t>(jsonMessage({{"command", "version"}}), readVersion);
}

Request<std::optional<SocketOwner>> processLookup(Transport transport, const SocketAddress& local,
                                                  const std::optional<SocketAddress>& remote) {
  ipc::Dictionary dictionary{
      {"command", "process-lookup"}, {"udp", transport == Transport::udp}, {"address", addressData(local)}};
  if (remote) dictionary.set("remote", addressData(*remote));
  return makeRequest<std::optional<SocketOwner>>({.dictionary = std::move(dictionary)}, readOwner);
}

Request<std::vector<std::string>> dhcpDiscover(const std::string& interface) {
  auto message = jsonMessage({{"command", "dhcp-discover"}, {"interface", interface}});
  message.ownTime = dhcpTime;
  return makeRequest<std::vector<std::string>>(std::move(message), readServers);
}

Request<std::optional<RouterAdvertisement>> raDetect(const std::string& interface) {
  return makeRequest<std::optional<RouterAdvertisement>>(
      {.dictionary = {{"command", "ra-detect"}, {"interface", interface}}, .ownTime = routerTime}, readRouter);
}

Request<Done> setProxies(const std::map<std::string, Proxies>& proxiesByService, ProxyLifetime lifetime) {
  std::optional<std::string> problem;
  json::object payload;
  for (const auto& [service, proxies] : proxiesByService) payload[service] = proxiesObject(proxies, problem);
  json::object command{{"command", "set-proxy"}, {"payload", std::move(payload)}};
  if (lifetime != ProxyLifetime::permanent) command["cleanup"] = lifetime == ProxyLifetime::permanentForAll;
  auto message = jsonMessage(command);
  message.problem = problem;
  return makeRequest<Done>(std::move(message), readDone);
}

Request<Done> setStaticIP(const std::string& service, const std::string& address, const std::string& mask,
                          const std::string& router) {
  return makeRequest<Done>(jsonMessage({{"command", "set-static-ip"},
                                        {"serviceID", service},
                                        {"address", address},
                                        {"mask", mask},
                                        {"router", router}}),
                           readDone);
}

Request<Done> startWatchdog() {
  return makeRequest<Done>(jsonMessage({{"command", "start-watchdog"}}), readDone);
}
Request<Done> stopWatchdog() {
  return makeRequest<Done>(jsonMessage({{"command", "stop-watchdog"}}), readDone);
}

Request<Done> defunctRestart() {
  return makeRequest<Done>(jsonMessage({{"command", "defunct-restart"}}), readEnd);
}

Request<Done> preventSleepTemporarily() {
  return makeRequest<Done>(jsonMessage({{"command", "prevent-sleep-temp"}}), readDone);
}

Request<std::int32_t> startDHCPServer(const DHCPServerSettings& settings) {
  return makeRequest<std::int32_t>(jsonMessage({{"command", "start-dhcpd"},
                                                {"config", settings.configuration},
                                                {"lease", settings.leases},
                                                {"dhcpd", settings.executable},
                                                {"interface", settings.interface},
                                                {"output", settings.output},
                                                {"pid", settings.pidFile}}),
                                   readPID);
}

Request<Done> stopDHCPServer() {
  return makeRequest<Done>(jsonMessage({{"command", "stop-dhcpd"}}), readDone);
}

Request<Done> spindump(const std::string& path) {
  return makeRequest<Done>(jsonMessage({{"command", "spindump"}, {"path", path}}), readDone);
}

Request<Done> stop() {
  auto message = jsonMessage({{"command", "stop"}});
  message.endsHelper = true;
  return makeRequest<Done>(std::move(message), readEnd);
}

Request<std::string> jsonCommand(const std::string& command) {
  return makeRequest<std::string>({.dictionary = jsonDictionary(command)}, readText);
}

}  // namespace v1
}  // namespace brimo
