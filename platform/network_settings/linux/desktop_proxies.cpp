#include "platform/network_settings/linux/desktop_proxies.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cerrno>
#include <functional>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/network_settings/preferences.h"
#include "platform/system/system_log.h"

namespace platform {

namespace json = boost::json;

namespace {

constexpr char recordName[] = "services.json";
constexpr std::chrono::seconds patience(2);

/// Whether a step went well; what it throws is in the system log.
bool succeeds(const std::function<void()>& step) {
  try {
    step();
    return true;
  } catch (const std::exception& error) {
    systemLog(fmt::format("Desktop proxies: {}", error.what()));
    return false;
  }
}

ProxyRecord load(const PrivateFolder& folder) {
  auto file = folder.read(recordName);
  if (!file) return {};
  ProxyRecord record;
  const auto value = json::parse(file->text);
  if (const auto* primary = value.at("primary").if_string()) record.primary = *primary;
  for (const auto& service : value.at("services").as_array()) {
    record.services.push_back(
        {.id = std::string(service.at("id").as_string()), .isConnection = service.at("isConnection").as_bool()});
  }
  return record;
}

void save(const ProxyRecord& record, const PrivateFolder& folder) {
  json::array services;
  for (const auto& [id, isConnection] : record.services)
    services.push_back({{"id", id}, {"isConnection", isConnection}});
  json::object object{{"primary", nullptr}, {"services", services}};
  if (record.primary) object["primary"] = *record.primary;
  folder.replace(recordName, json::serialize(object));
}

/// The stored proxies of a service, as programs are to be told of them.
DesktopProxy proxyOf(PreferencesStore& store, const std::string& service) {
  const auto* value =
      store.find(fmt::format("/{}/{}/{}", preferences::networkServices, service, preferences::proxiesEntity));
  const auto* proxies = value ? value->if_object() : nullptr;
  if (!proxies) return {};
  if (hasOnlyInlineScript(*proxies)) {
    static std::once_flag isLogged;
    std::call_once(isLogged, [] {
      systemLog("Desktop proxies: a script that is not at a URL is only handed on to NetworkManager");
    });
  }
  return desktopProxy(*proxies);
}

/// Tells running programs over a connection of its own, and returns when the bus has been told. Returns 0 or a negative
/// errno.
int announceNow(const std::string& service) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  SystemBus bus;
  if (int result = openSystemBus(bus, deadline); result < 0) return result;
  if (int result = announce(bus.get(), service); result < 0) return result;
  // What the bus answers to, it has read after the signal.
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus.get(), &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                              "org.freedesktop.DBus.Peer", "Ping");
  BusMessage request(made), reply;
  return result < 0 ? result : callUntil(deadline, bus.get(), made, nullptr, reply);
}

}  // namespace

void ProxyRecord::add(const std::string& service) {
  bool isKnown = std::any_of(services.begin(), services.end(), [&](const auto& known) { return known.id == service; });
  if (!isKnown) services.push_back({.id = service});
}

void ProxyRecord::remove(const std::string& service) {
  std::erase_if(services, [&](const auto& known) { return known.id == service; });
}

std::optional<std::string> ProxyRecord::source() const {
  auto found = std::find_if(services.begin(), services.end(), [&](const auto& known) { return known.id == primary; });
  if (found == services.end()) {
    found = std::find_if(services.begin(), services.end(), [](const auto& known) { return !known.isConnection; });
  }
  if (found == services.end()) return std::nullopt;
  return found->id;
}

DesktopProxies::DesktopProxies(const std::string& service) : service_(service) {}

void DesktopProxies::start() {
  succeeds([&] { record_ = load(DesktopDatabase(service_).folder()); });
  succeeds([&] {
    end_ = EventSource::exit([this] { withdrawDesktopProxies(service_); });
    primary_ = std::make_unique<PrimaryConnection>([this](const auto& primary) { setPrimary(primary); });
  });
}

void DesktopProxies::setPrimary(const std::optional<std::string>& primary) {
  if (isPrimaryKnown_ && record_.primary == primary) return;
  isPrimaryKnown_ = true;
  record_.primary = primary;
  succeeds([&] {
    PreferencesStore store("/var/lib/" + service_);
    publish(&store);
  });
}

void DesktopProxies::publish(PreferencesStore& store, const std::set<std::string>& set,
                             const std::set<std::string>& off) {
  for (const auto& service : set) record_.add(service);
  for (const auto& service : off) record_.remove(service);
  publish(&store);
}

void DesktopProxies::publishKnowing(PreferencesStore& store, const std::set<std::string>& connections) {
  bool isNews = false;
  for (auto& [id, isConnection] : record_.services) {
    bool was = std::exchange(isConnection, connections.contains(id));
    isNews = isNews || was != isConnection;
  }
  if (isNews) publish(&store);
}

void DesktopProxies::publishNone() {
  publish(nullptr);
}

void DesktopProxies::publish(PreferencesStore* store) {
  succeeds([&] {
    const DesktopDatabase database(service_);
    const auto source = record_.source();
    DesktopProxy proxy;
    succeeds([&] {
      save(record_, database.folder());
      if (store && source) proxy = proxyOf(*store, *source);
    });
    succeeds([&] { database.publish(proxy, source.value_or("")); });
    int result = primary_ && primary_->bus() ? announce(primary_->bus(), service_) : -ENOTCONN;
    if (result < 0) throw std::system_error(-result, std::generic_category(), "running programs are not told");
  });
}

bool withdrawDesktopProxies(const std::string& service) {
  bool isOff = false;
  succeeds([&] {
    const DesktopDatabase database(service);
    isOff = succeeds([&] { database.folder().remove(recordName); });
    isOff = succeeds([&] { database.publish({}, ""); }) && isOff;
    if (int result = announceNow(service); result < 0) {
      throw std::system_error(-result, std::generic_category(), "running programs are not told");
    }
  });
  return isOff;
}

}  // namespace platform
