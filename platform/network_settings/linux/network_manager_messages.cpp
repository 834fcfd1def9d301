#include "platform/network_settings/linux/network_manager_messages.h"

#include <fmt/format.h>

#include <set>

namespace platform {

const char* readString(sd_bus_message* message, char type) {
  const char* text = nullptr;
  check(sd_bus_message_read_basic(message, type, &text));
  return text;
}

void skip(sd_bus_message* message, const char* type) {
  check(sd_bus_message_skip(message, type));
}

void forEachEntry(sd_bus_message* message, const char* entry, const std::function<void(const char* key)>& visit) {
  check(sd_bus_message_enter_container(message, 'a', fmt::format("{{{}}}", entry).c_str()));
  while (check(sd_bus_message_enter_container(message, 'e', entry)) > 0) {
    visit(readString(message, 's'));
    check(sd_bus_message_exit_container(message));
  }
  check(sd_bus_message_exit_container(message));
}

namespace {

/// Adds an entry to the open setting; `write` writes the variant's value.
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

/// Adds a setting; `write` adds its entries.
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

/// The keys of "ipv4" that writeIPv4() writes, and the one that would disable its gateway.
bool isReplacedInIPv4(std::string_view key) {
  static const std::set<std::string_view> keys{"method", "gateway", "address-data", "never-default"};
  return keys.contains(key);
}

/// Whether a key is a deprecated form of "address-data" or "route-data". It holds less, but NetworkManager would prefer
/// it.
bool isOldForm(std::string_view setting, std::string_view key) {
  return (setting == "ipv4" || setting == "ipv6") && (key == "addresses" || key == "routes");
}

/// Whether settings already contain the proxy. Rewinds the message afterwards.
bool holdsProxy(sd_bus_message* settings, const ProxySetting& wanted) {
  ProxySetting held;
  bool holdsMore = false;
  auto readText = [&](std::string& to) {
    check(sd_bus_message_enter_container(settings, 'v', "s"));
    to = readString(settings, 's');
    check(sd_bus_message_exit_container(settings));
  };
  forEachEntry(settings, "sa{sv}", [&](std::string_view setting) {
    if (setting != "proxy") return skip(settings, "a{sv}");
    forEachEntry(settings, "sv", [&](std::string_view key) {
      if (key == "pac-url") return readText(held.pacURL);
      if (key == "pac-script") return readText(held.pacScript);
      if (key != "method") {
        holdsMore = true;
        return skip(settings, "v");
      }
      std::int32_t method = 0;
      check(sd_bus_message_read(settings, "v", "i", &method));
      held.automatic = method == 1;
    });
  });
  check(sd_bus_message_rewind(settings, true));
  return !holdsMore && held == wanted;
}

}  // namespace

bool isDone(sd_bus_message* settings, const NetworkManager::Change& change) {
  return !change.ipv4 && (!change.proxy || holdsProxy(settings, *change.proxy));
}

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

}  // namespace platform
