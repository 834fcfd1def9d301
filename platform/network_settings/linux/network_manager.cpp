#include "platform/network_settings/linux/network_manager.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "platform/dispatch/linux/event_loop.h"
#include "platform/network_settings/linux/network_manager_messages.h"

namespace platform {

namespace {

constexpr char service[] = "org.freedesktop.NetworkManager";
constexpr char root[] = "/org/freedesktop/NetworkManager";
constexpr char settingsPath[] = "/org/freedesktop/NetworkManager/Settings";
constexpr char settingsInterface[] = "org.freedesktop.NetworkManager.Settings";
constexpr char connectionInterface[] = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr char activeInterface[] = "org.freedesktop.NetworkManager.Connection.Active";
constexpr char deviceInterface[] = "org.freedesktop.NetworkManager.Device";

constexpr std::size_t maximumQuestions = 256;  // beyond this, all connections are listed instead

/// A D-Bus error reply.
struct ErrorReply : Failure {
  ErrorReply(const sd_bus_error& error) : Failure(0, error.message ? error.message : error.name), name(error.name) {}
  std::string name;
};

}  // namespace

void NetworkManager::connect() {
  auto bus = openSystemBus(deadline_);
  if (bus) {
    bus_ = std::move(*bus);
    return;
  }
  const auto failure = bus.error();
  bool isAbsent = failure.number == ENOENT || failure.number == ECONNREFUSED;
  presence_ = isAbsent ? Presence::absent : Presence::silent;
  throw failureOf(failure.number, isAbsent ? "no system bus" : "the system bus does not answer");
}

BusMessage NetworkManager::makeCall(const Path& object, const char* interface, const char* method) {
  if (!bus_) connect();
  sd_bus_message* message = nullptr;
  check(sd_bus_message_new_method_call(bus_.get(), &message, service, object.c_str(), interface, method));
  BusMessage owner(message);
  check(sd_bus_message_set_auto_start(message, 0));  // a user who does not run NetworkManager does not want it started
  return owner;
}

/// Returns the reply; throws an ErrorReply if the reply is an error.
BusMessage NetworkManager::accepted(BusMessage reply) {
  if (const auto* error = sd_bus_message_get_error(reply.get())) throw ErrorReply(*error);
  return reply;
}

BusMessage NetworkManager::call(BusMessage request) {
  std::vector<BusMessage> requests;
  requests.push_back(std::move(request));
  return accepted(std::move(callTogether(requests).front()));
}

std::vector<BusMessage> NetworkManager::callTogether(const std::vector<BusMessage>& requests) {
  constexpr std::size_t maximumUnderWay = 16;
  std::vector<BusMessage> replies(requests.size());
  std::vector<BusSlot> slots;
  auto onReply = [](sd_bus_message* reply, void* place, sd_bus_error*) {
    static_cast<BusMessage*>(place)->reset(sd_bus_message_ref(reply));
    return 0;
  };
  std::size_t answered = 0;
  while (answered < requests.size()) {
    while (slots.size() < requests.size() && slots.size() < answered + maximumUnderWay) {
      sd_bus_slot* slot = nullptr;
      const auto& request = requests[slots.size()];
      int sent = sd_bus_call_async(bus_.get(), &slot, request.get(), onReply, &replies[slots.size()], 0);
      if (sent < 0) throwSilent(-sent);
      slots.emplace_back(slot);
    }
    if (auto served = serveUntil(deadline_, bus_.get()); !served) throwSilent(served.error().number);
    const auto count = static_cast<std::size_t>(std::count_if(replies.begin(), replies.end(), std::identity()));
    if (count == answered) continue;
    answered = count;
    feedWatchdog();
    // Each reply extends the deadline: on a busy machine many services may take longer, and only silence counts.
    deadline_ = std::chrono::steady_clock::now() + patience;
  }
  for (const auto& reply : replies) notePresence(sd_bus_message_get_error(reply.get()));
  return replies;
}

void NetworkManager::throwSilent(int number) {
  presence_ = Presence::silent;
  throw failureOf(number, "NetworkManager does not answer");
}

/// Notes the presence shown by a reply's error (null if none). Throws if the error did not come from NetworkManager
/// itself.
void NetworkManager::notePresence(const sd_bus_error* error) {
  presence_ = Presence::there;
  if (!error) return;
  if (sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
    presence_ = Presence::absent;
    throw Failure(0, "NetworkManager is not running");
  }
  // Errors that are made locally: time-outs, and the end of the bus or of NetworkManager.
  if (sd_bus_error_has_names(error, SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_TIMEOUT, SD_BUS_ERROR_DISCONNECTED)) {
    throwSilent(sd_bus_error_get_errno(error));
  }
}

std::string NetworkManager::property(const Path& object, const char* interface, const char* name) {
  auto request = makeCall(object, "org.freedesktop.DBus.Properties", "Get");
  check(sd_bus_message_append(request.get(), "ss", interface, name));
  auto reply = call(std::move(request));
  const char* type = nullptr;
  check(sd_bus_message_peek_type(reply.get(), nullptr, &type));
  check(sd_bus_message_enter_container(reply.get(), 'v', type));
  return readString(reply.get(), *type);
}

std::vector<NetworkManager::Path> NetworkManager::list(const Path& object, const char* interface, const char* method) {
  auto reply = call(makeCall(object, interface, method));
  std::vector<Path> paths;
  check(sd_bus_message_enter_container(reply.get(), 'a', "o"));
  while (!check(sd_bus_message_at_end(reply.get(), 0))) paths.emplace_back(readString(reply.get(), 'o'));
  return paths;
}

NetworkManager::Connection NetworkManager::readConnection(const Path& path) {
  auto reply = call(makeCall(path, connectionInterface, "GetSettings"));
  Connection connection{.path = path, .uuid = {}, .name = {}, .proxy = {}};
  const std::map<std::string, std::string*, std::less<>> members{{"connection.uuid", &connection.uuid},
                                                                 {"connection.id", &connection.name},
                                                                 {"proxy.pac-url", &connection.proxy.pacURL},
                                                                 {"proxy.pac-script", &connection.proxy.pacScript}};
  forEachEntry(reply.get(), "sa{sv}", [&](std::string_view setting) {
    forEachEntry(reply.get(), "sv", [&](std::string_view key) {
      auto member = members.find(fmt::format("{}.{}", setting, key));
      if (member == members.end()) return skip(reply.get(), "v");
      check(sd_bus_message_enter_container(reply.get(), 'v', "s"));
      *member->second = readString(reply.get(), 's');
      check(sd_bus_message_exit_container(reply.get()));
    });
  });
  connection.proxy.automatic = !connection.proxy.pacURL.empty() || !connection.proxy.pacScript.empty();
  return connection;
}

Result<std::vector<NetworkManager::Connection>> NetworkManager::connections() {
  return attempt([this] {
    std::vector<Connection> connections;
    for (const auto& path : list(settingsPath, settingsInterface, "ListConnections")) {
      try {
        connections.push_back(readConnection(path));
      } catch (const ErrorReply&) {
        continue;  // another user's, or removed since it was listed
      }
    }
    return connections;
  });
}

Result<std::vector<Result<std::optional<NetworkManager::Path>>>> NetworkManager::findConnections(
    const std::vector<std::string>& uuids) {
  if (uuids.size() > maximumQuestions) return findAmongAll(uuids);
  return attempt([&] {
    std::vector<BusMessage> requests;
    std::vector<bool> isAsked;  // per UUID; D-Bus cannot carry every text
    for (const auto& uuid : uuids) {
      auto request = makeCall(settingsPath, settingsInterface, "GetConnectionByUuid");
      bool isText = uuid.find('\0') == uuid.npos;
      int result = isText ? sd_bus_message_append(request.get(), "s", uuid.c_str()) : -EINVAL;
      isAsked.push_back(result != -EINVAL);
      if (!isAsked.back()) continue;
      check(result);
      requests.push_back(std::move(request));
    }
    auto replies = callTogether(requests);
    auto next = replies.begin();
    std::vector<Result<std::optional<Path>>> found;
    for (bool hasReply : isAsked) {
      found.push_back(attempt([&]() -> std::optional<Path> {
        if (!hasReply) return std::nullopt;
        try {
          return readString(accepted(std::move(*next++)).get(), 'o');
        } catch (const ErrorReply& error) {
          if (error.name == "org.freedesktop.NetworkManager.Settings.InvalidConnection") return std::nullopt;
          throw;
        }
      }));
    }
    return found;
  });
}

// Asking for each of hundreds of thousands of UUIDs would take minutes.
Result<std::vector<Result<std::optional<NetworkManager::Path>>>> NetworkManager::findAmongAll(
    const std::vector<std::string>& uuids) {
  auto all = connections();
  if (!all) return all.error();
  std::map<std::string_view, Path> paths;
  for (const auto& connection : *all) paths.emplace(connection.uuid, connection.path);
  std::vector<Result<std::optional<Path>>> found;
  for (const auto& uuid : uuids) {
    auto path = paths.find(uuid);
    found.emplace_back(path == paths.end() ? std::nullopt : std::optional(path->second));
  }
  return found;
}

Result<std::optional<NetworkManager::Path>> NetworkManager::primaryConnection() {
  return attempt([this]() -> std::optional<Path> {
    try {
      auto activation = property(root, service, "PrimaryConnection");
      if (activation == "/") return std::nullopt;
      return property(activation, activeInterface, "Connection");
    } catch (const ErrorReply&) {
      return std::nullopt;  // removed since it was reported
    }
  });
}

Result<std::multimap<NetworkManager::Path, NetworkManager::Device>> NetworkManager::activeDevices() {
  return attempt([this] {
    std::multimap<Path, Device> active;
    for (const auto& device : list(root, service, "GetDevices")) {
      try {
        auto activation = property(device, deviceInterface, "ActiveConnection");
        if (activation == "/") continue;
        active.emplace(property(activation, activeInterface, "Connection"),
                       Device{.path = device, .interface = property(device, deviceInterface, "Interface")});
      } catch (const ErrorReply&) {
        continue;  // removed since it was listed
      }
    }
    return active;
  });
}

Result<std::vector<Result<void>>> NetworkManager::update(const std::vector<std::pair<Path, Change>>& changes) {
  return attempt([&] {
    std::vector<BusMessage> questions, requests;
    for (const auto& [connection, change] : changes) {
      questions.push_back(makeCall(connection, connectionInterface, "GetSettings"));
    }
    std::vector<Result<void>> done(changes.size());
    std::vector<std::size_t> changed;  // indices of the changes that `requests` are for
    auto settings = callTogether(questions);
    for (std::size_t index = 0; index < changes.size(); ++index) {
      done[index] = attempt([&] {
        const auto& [connection, change] = changes[index];
        auto before = accepted(std::move(settings[index]));
        if (isDone(before.get(), change)) return;
        auto request = makeCall(connection, connectionInterface, "Update2");
        writeChanged(request.get(), before.get(), change);
        // No flags: the connection remains stored on disk, or not, as before.
        check(sd_bus_message_append(request.get(), "ua{sv}", 0, 0));
        requests.push_back(std::move(request));
        changed.push_back(index);
      });
    }
    auto replies = callTogether(requests);
    for (std::size_t number = 0; number < changed.size(); ++number) {
      done[changed[number]] = attempt([&] { accepted(std::move(replies[number])); });
    }
    return done;
  });
}

Result<void> NetworkManager::reapply(const Path& device, const Change& change) {
  return attempt([&] {
    auto question = makeCall(device, deviceInterface, "GetAppliedConnection");
    check(sd_bus_message_append(question.get(), "u", 0));
    auto request = makeCall(device, deviceInterface, "Reapply");
    try {
      auto applied = call(std::move(question));
      if (isDone(applied.get(), change)) return;
      writeChanged(request.get(), applied.get(), change);
      std::uint64_t version = 0;
      check(sd_bus_message_read(applied.get(), "t", &version));
      check(sd_bus_message_append(request.get(), "tu", version, 0));
      call(std::move(request));
    } catch (const ErrorReply& error) {
      if (error.name != "org.freedesktop.NetworkManager.Device.NotActive") throw;
    }
  });
}

}  // namespace platform
