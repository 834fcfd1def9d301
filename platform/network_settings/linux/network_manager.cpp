#include "platform/network_settings/linux/network_manager.h"

#include <fmt/format.h>

#include <cerrno>
#include <functional>
#include <set>

namespace platform {

namespace {

constexpr char service[] = "org.freedesktop.NetworkManager";
constexpr char root[] = "/org/freedesktop/NetworkManager";
constexpr char settingsPath[] = "/org/freedesktop/NetworkManager/Settings";
constexpr char settingsInterface[] = "org.freedesktop.NetworkManager.Settings";
constexpr char connectionInterface[] = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr char activeInterface[] = "org.freedesktop.NetworkManager.Connection.Active";
constexpr char deviceInterface[] = "org.freedesktop.NetworkManager.Device";

/// An answer that says no.
struct Refusal : Failure {
  Refusal(const sd_bus_error& error) : Failure(0, error.message ? error.message : error.name), name(error.name) {}
  std::string name;
};

const char* readString(sd_bus_message* message, char type) {
  const char* text = nullptr;
  check(sd_bus_message_read_basic(message, type, &text));
  return text;
}

void skip(sd_bus_message* message, const char* type) {
  check(sd_bus_message_skip(message, type));
}

/// Walks the entries of the dictionary that comes next. `visit` gets each key and must read or skip its value.
void forEachEntry(sd_bus_message* message, const char* entry, const std::function<void(const char* key)>& visit) {
  check(sd_bus_message_enter_container(message, 'a', fmt::format("{{{}}}", entry).c_str()));
  while (check(sd_bus_message_enter_container(message, 'e', entry)) > 0) {
    visit(readString(message, 's'));
    check(sd_bus_message_exit_container(message));
  }
  check(sd_bus_message_exit_container(message));
}

/// Adds an entry with a variant as its value to the setting that is open. `write` gets what the value is written to.
void addEntry(sd_bus_message* to, const char* key, const char* type,
              const std::function<void(sd_bus_message*)>& write) {
  check(sd_bus_message_open_container(to, 'e', "sv"));
  check(sd_bus_message_append(to, "s", key));
  check(sd_bus_message_open_container(to, 'v', type));
  write(to);
  check(sd_bus_message_close_container(to));
  check(sd_bus_message_close_container(to));
}

void addText(sd_bus_message* to, const char* key, const std::string& text) {
  addEntry(to, key, "s", [&](auto* value) { check(sd_bus_message_append(value, "s", text.c_str())); });
}

/// Opens a setting, lets `write` fill it, and closes it.
void addSetting(sd_bus_message* to, const char* name, const std::function<void()>& write) {
  check(sd_bus_message_open_container(to, 'e', "sa{sv}"));
  check(sd_bus_message_append(to, "s", name));
  check(sd_bus_message_open_container(to, 'a', "{sv}"));
  write();
  check(sd_bus_message_close_container(to));
  check(sd_bus_message_close_container(to));
}

void writeProxy(sd_bus_message* to, const ProxySetting& proxy) {
  addEntry(to, "method", "i", [&](auto* value) { check(sd_bus_message_append(value, "i", proxy.automatic ? 1 : 0)); });
  if (!proxy.pacURL.empty()) addText(to, "pac-url", proxy.pacURL);
  if (!proxy.pacScript.empty()) addText(to, "pac-script", proxy.pacScript);
}

void writeIPv4(sd_bus_message* to, const IPv4Setting& ipv4) {
  addText(to, "method", "manual");
  addText(to, "gateway", ipv4.gateway);
  addEntry(to, "address-data", "aa{sv}", [&](auto* value) {
    check(
        sd_bus_message_append(value, "aa{sv}", 1, 2, "address", "s", ipv4.address.c_str(), "prefix", "u", ipv4.prefix));
  });
}

/// The keys of "ipv4" that writeIPv4() writes, and the one that would keep its gateway from being used.
bool isReplacedInIPv4(std::string_view key) {
  static const std::set<std::string_view> keys{"method", "gateway", "address-data", "never-default"};
  return keys.contains(key);
}

/// The old forms of "address-data" and "route-data", which would be preferred to them and hold less.
bool isOldForm(std::string_view setting, std::string_view key) {
  return (setting == "ipv4" || setting == "ipv6") && (key == "addresses" || key == "routes");
}

/// Copies the settings that come next in `from`, with a change in them.
void writeChanged(sd_bus_message* to, sd_bus_message* from, const NetworkManager::Change& change) {
  check(sd_bus_message_open_container(to, 'a', "{sa{sv}}"));
  if (change.proxy) addSetting(to, "proxy", [&] { writeProxy(to, *change.proxy); });
  bool hasIPv4 = false;
  forEachEntry(from, "sa{sv}", [&](const char* setting) {
    const std::string_view name = setting;
    if (name == "proxy" && change.proxy) return skip(from, "a{sv}");
    addSetting(to, setting, [&] {
      bool isChanged = name == "ipv4" && change.ipv4;
      hasIPv4 = hasIPv4 || isChanged;
      forEachEntry(from, "sv", [&](const char* key) {
        if (isOldForm(name, key) || (isChanged && isReplacedInIPv4(key))) return skip(from, "v");
        check(sd_bus_message_open_container(to, 'e', "sv"));
        check(sd_bus_message_append(to, "s", key));
        check(sd_bus_message_copy(to, from, 0));
        check(sd_bus_message_close_container(to));
      });
      if (isChanged) writeIPv4(to, *change.ipv4);
    });
  });
  if (change.ipv4 && !hasIPv4) addSetting(to, "ipv4", [&] { writeIPv4(to, *change.ipv4); });
  check(sd_bus_message_close_container(to));
}

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
  throw failureOf(failure.number, isAbsent ? "no system bus" : "the system bus cannot be had");
}

BusMessage NetworkManager::makeCall(const Path& object, const char* interface, const char* method) {
  if (!bus_) connect();
  sd_bus_message* message = nullptr;
  check(sd_bus_message_new_method_call(bus_.get(), &message, service, object.c_str(), interface, method));
  BusMessage owner(message);
  check(sd_bus_message_set_auto_start(message, 0));  // who does not run NetworkManager does not want it started
  return owner;
}

BusMessage NetworkManager::call(const BusMessage& request) {
  sd_bus_error error{};
  auto reply = callUntil(deadline_, bus_.get(), request.get(), &error);
  std::unique_ptr<sd_bus_error, decltype(&sd_bus_error_free)> owner(&error, &sd_bus_error_free);
  presence_ = Presence::there;
  if (reply) {
    // Only silence is not waited for: many services may take longer on a busy machine.
    deadline_ = std::chrono::steady_clock::now() + patience;
    return std::move(*reply);
  }
  if (sd_bus_error_has_names(&error, SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
    presence_ = Presence::absent;
    throw Failure(0, "NetworkManager is not running");
  }
  // What did not come over the bus: time-outs, and the end of the bus or of NetworkManager.
  if (!sd_bus_error_is_set(&error) ||
      sd_bus_error_has_names(&error, SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_TIMEOUT, SD_BUS_ERROR_DISCONNECTED)) {
    presence_ = Presence::silent;
    throw failureOf(reply.error().number, "NetworkManager does not answer");
  }
  throw Refusal(error);
}

std::string NetworkManager::property(const Path& object, const char* interface, const char* name) {
  auto request = makeCall(object, "org.freedesktop.DBus.Properties", "Get");
  check(sd_bus_message_append(request.get(), "ss", interface, name));
  auto reply = call(request);
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
  Connection connection{.path = path, .uuid = {}, .name = {}};
  forEachEntry(reply.get(), "sa{sv}", [&](std::string_view setting) {
    forEachEntry(reply.get(), "sv", [&](std::string_view key) {
      bool isID = key == "uuid";
      if (setting != "connection" || (!isID && key != "id")) return skip(reply.get(), "v");
      check(sd_bus_message_enter_container(reply.get(), 'v', "s"));
      (isID ? connection.uuid : connection.name) = readString(reply.get(), 's');
      check(sd_bus_message_exit_container(reply.get()));
    });
  });
  return connection;
}

Result<std::vector<NetworkManager::Connection>> NetworkManager::connections() {
  return attempt([this] {
    std::vector<Connection> connections;
    for (const auto& path : list(settingsPath, settingsInterface, "ListConnections")) {
      try {
        connections.push_back(readConnection(path));
      } catch (const Refusal&) {
        continue;  // another user's, or gone since it was listed
      }
    }
    return connections;
  });
}

Result<std::optional<NetworkManager::Path>> NetworkManager::findConnection(const std::string& uuid) {
  return attempt([&]() -> std::optional<Path> {
    if (uuid.find('\0') != uuid.npos) return std::nullopt;
    auto request = makeCall(settingsPath, settingsInterface, "GetConnectionByUuid");
    int result = sd_bus_message_append(request.get(), "s", uuid.c_str());
    if (result == -EINVAL) return std::nullopt;  // D-Bus carries no such text
    check(result);
    try {
      return readString(call(request).get(), 'o');
    } catch (const Refusal& refusal) {
      if (refusal.name == "org.freedesktop.NetworkManager.Settings.InvalidConnection") return std::nullopt;
      throw;
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
      } catch (const Refusal&) {
        continue;  // gone since it was listed
      }
    }
    return active;
  });
}

Result<void> NetworkManager::update(const Path& connection, const Change& change) {
  return attempt([&] {
    auto settings = call(makeCall(connection, connectionInterface, "GetSettings"));
    auto request = makeCall(connection, connectionInterface, "Update2");
    writeChanged(request.get(), settings.get(), change);
    check(sd_bus_message_append(request.get(), "ua{sv}", 0, 0));  // no flags: it stays on the disk, or off it
    call(request);
  });
}

Result<void> NetworkManager::reapply(const Path& device, const Change& change) {
  return attempt([&] {
    auto question = makeCall(device, deviceInterface, "GetAppliedConnection");
    check(sd_bus_message_append(question.get(), "u", 0));
    auto request = makeCall(device, deviceInterface, "Reapply");
    try {
      auto applied = call(question);
      writeChanged(request.get(), applied.get(), change);
      std::uint64_t version = 0;
      check(sd_bus_message_read(applied.get(), "t", &version));
      check(sd_bus_message_append(request.get(), "tu", version, 0));
      call(request);
    } catch (const Refusal& refusal) {
      if (refusal.name != "org.freedesktop.NetworkManager.Device.NotActive") throw;
    }
  });
}

}  // namespace platform
