// Dispatches events: errors, raw commands and JSON commands.
#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <map>

#include "foundation/HXJSON.h"
#include "helper/BRHMain.h"
#include "helper/external_process_watchdog.h"
#include "helper/probes/BRHDHCPDetector.h"
#include "helper/probes/BRHV6RADetector.h"
#include "helper/probes/socket_owner_lookup.h"
#include "platform/base/json_text.h"
#include "platform/dispatch/dispatch.h"

namespace ipc = platform::ipc;
namespace json = boost::json;

namespace {

constexpr std::size_t maximumPayload = 4'194'304;  // bytes
constexpr int maximumRouterProbes = 128, maximumDHCPProbes = 128;
constexpr int maximumLookups = 512;  // at a time, per connection

using Reply = std::function<void(const ipc::Dictionary&)>;

/// The socket address under a key; absent when the value is missing or has the wrong size.
std::optional<BRSockAddr> addressIn(const ipc::Dictionary& dictionary, const char* key) {
  const auto* data = dictionary.get<ipc::Data>(key);
  BRSockAddr address;
  if (!data || data->size() != address.size()) return std::nullopt;
  std::copy(data->begin(), data->end(), address.begin());
  return address;
}

/// Sends an object as JSON text under the reply's key "json".
void sendJSON(const Reply& reply, const json::object& object) {
  ipc::Dictionary dictionary;
  if (auto text = HX_JSONData(object)) dictionary.set("json", ipc::Data(text->begin(), text->end()));
  reply(dictionary);
}

void sendJSONError(const ipc::Message& request, const char* text) {
  if (request.reply) sendJSON(request.reply, {{"error", text}});
}

BRSocketQuestion socketQuestion(const ipc::Dictionary& request, const BRSockAddr& address) {
  const auto* udp = request.get<bool>("udp");
  return {.protocol = udp && *udp ? platform::SocketProtocol::udp : platform::SocketProtocol::tcp,
          .address = address,
          .remote = addressIn(request, "remote")};
}

ipc::Dictionary ownerReply(const std::optional<BRProcess>& owner) {
  ipc::Dictionary dictionary;
  if (owner) {
    dictionary.set("pid", std::int64_t{owner->pid});
    if (owner->processPath) dictionary.set("path", *owner->processPath);
  }
  return dictionary;
}

}  // namespace

BRHMain& BRHMain::sharedInstance() {
  static auto* instance = new BRHMain;
  return *instance;
}

void BRHMain::handleXPCEvent(ipc::Connection& connection, const ipc::Event& event) {
  if (const auto* request = std::get_if<ipc::Message>(&event)) return handleRequest(*request, connection);
  const auto& error = std::get<ipc::Error>(event);
  switch (error.kind) {
    case ipc::Error::Kind::connectionInvalid:
      HX_log("XPC connection closed");
      break;
    case ipc::Error::Kind::terminationImminent:
      HX_log("XPC_ERROR_TERMINATION_IMMINENT");
      break;
    case ipc::Error::Kind::other:
      HX_log("XPC_TYPE_ERROR: {}", error.description);
      break;
  }
  cleanUpAfterLostClient();
}

// Ends what must not outlast a client, then relaunches the application if the watchdog is on. docs/architecture.md
// lists the steps in this order.
void BRHMain::cleanUpAfterLostClient() {
  cleanupProxySettings();
  BRHKillWatchedExternalProcesses();
  stopDHCP();
  relaunchAfterLostClient();
}

void BRHMain::handleRequest(const ipc::Message& request, const ipc::Connection& client) {
  if (const auto* command = request.dictionary.get<std::string>("command"))
    return handleRawCommand(*command, request, client);

  const auto* payload = request.dictionary.get<ipc::Data>("json");
  if (!payload) {
    HX_log("XPC dictionary contains no supported command");
    return sendJSONError(request, "missing command");
  }
  if (payload->size() > maximumPayload) {
    HX_log("JSON command payload is too large: {}", payload->size());
    return sendJSONError(request, "command payload is too large");
  }
  auto parsed = HX_JSONObject(HXData(*payload));
  const auto* object = parsed ? parsed->if_object() : nullptr;
  const auto* command = object ? object->if_contains("command") : nullptr;
  if (!command || !command->is_string()) {
    HX_log("Invalid JSON command payload");
    return sendJSONError(request, "invalid command payload");
  }
  HX_log("Received command: {}", std::string_view(command->get_string()));

  if (command->get_string() == "dhcp-discover") return dhcpDiscover(*object, request);
  auto reply = execCommand(*object, client);
  if (!request.reply) {
    HX_log("JSON command does not accept a reply");
    return;
  }
  sendJSON(request.reply, reply);
}

void BRHMain::handleRawCommand(const std::string& command, const ipc::Message& request, const ipc::Connection& client) {
  HX_log("Received raw command: {}", command);
  if (command == "process-lookup") return processLookup(request, client);
  if (command == "ra-detect") return raDetect(request);
  HX_log("Unknown raw command!");
  if (request.reply) request.reply({{"error", "unknown command"}});
}

void BRHMain::processLookup(const ipc::Message& request, const ipc::Connection& client) {
  if (!request.reply) {
    HX_log("process-lookup request does not accept a reply");
    return;
  }
  const auto address = addressIn(request.dictionary, "address");
  if (!address) {
    const auto* data = request.dictionary.get<ipc::Data>("address");
    HX_log("Invalid process-lookup address length: {}", data ? data->size() : 0);
    return request.reply({{"error", "invalid address"}});
  }
  // Used on the main queue only. A new Connection object at the memory address of an ended one shares the ended one's
  // count until the old look-ups are answered.
  static std::map<const ipc::Connection*, int> lookups;
  if (lookups[&client] >= maximumLookups) {
    HX_log("Too many process-lookup requests at once");
    return request.reply({{"error", "too many requests"}});
  }
  ++lookups[&client];
  auto answer = [reply = request.reply, connection = &client](const std::optional<BRProcess>& owner) {
    if (--lookups[connection] == 0) lookups.erase(connection);
    reply(ownerReply(owner));
  };
  BRAskSocketOwner(socketQuestion(request.dictionary, *address), [answer](const std::optional<BRProcess>& owner) {
    if (platform::dispatch::isMainThread()) return answer(owner);
    platform::dispatch::async(platform::dispatch::mainQueue(), [answer, owner] { answer(owner); });
  });
}

void BRHMain::raDetect(const ipc::Message& request) {
  if (!request.reply) {
    HX_log("ra-detect request does not accept a reply");
    return;
  }
  const auto* interface = request.dictionary.get<std::string>("interface");
  if (!interface || interface->empty()) {
    HX_log("Invalid ra-detect interface");
    return request.reply({{"error", "invalid interface"}});
  }
  // Each probe uses two threads and two sockets for several seconds.
  static std::atomic<int> running = 0;
  if (running >= maximumRouterProbes) {
    HX_log("Too many ra-detect requests at once");
    return request.reply({});
  }
  ++running;
  auto detector = std::make_shared<BRHV6RADetector>();
  detector->setInterface(*interface);
  // The handler keeps the detector alive until the probe completes.
  detector->setCompletionHandler([detector, reply = request.reply](const auto& data, const auto& address) {
    --running;
    ipc::Dictionary answer;
    if (data && address) {
      answer.set("data", *data);
      answer.set("addr", *address);
    }
    reply(answer);
  });
  detector->start();
}

void BRHMain::dhcpDiscover(const json::object& command, const ipc::Message& request) {
  if (!request.reply) {
    HX_log("dhcp-discover request does not accept a reply");
    return;
  }
  auto interface = platform::textMember(command, "interface");
  if (interface.empty()) return sendJSONError(request, "Invalid interface");
  // Each probe occupies a thread of the global queue, which look-ups need, too.
  static std::atomic<int> running = 0;
  if (running >= maximumDHCPProbes) {
    HX_log("Too many dhcp-discover requests at once");
    return sendJSONError(request, "too many requests");
  }
  ++running;
  BRHDHCPDetector().startTestWithInterfaceName(
      std::string(interface), [reply = request.reply](const auto& error, const auto& serverAddresses) {
        --running;
        if (error) return sendJSON(reply, {{"error", error->localizedDescription}});
        sendJSON(reply, {{"serverAddresses", json::value_from(*serverAddresses)}});
      });
}
