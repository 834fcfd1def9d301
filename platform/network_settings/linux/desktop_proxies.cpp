#include "platform/network_settings/linux/desktop_proxies.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <mutex>
#include <utility>

#include "platform/network_settings/preferences.h"
#include "platform/system/system_log.h"

namespace platform {

namespace json = boost::json;

namespace {

constexpr std::chrono::seconds patience(2);
// These limits keep the record and "proxies.json" small enough to be stored.
constexpr std::size_t maximumServices = 4'096, maximumIDSize = 256;

/// Whether a step succeeded. A failure goes to the system log.
template <class Value>
bool succeeded(const Result<Value>& step) {
  if (!step) systemLog(fmt::format("Desktop proxies: {}", step.error().what()));
  return step.has_value();
}

Result<ProxyRecord> load(const PrivateFolder& folder) {
  auto file = folder.read(proxyRecordName);
  if (!file) return file.error();
  ProxyRecord record;
  if (!*file) return record;
  try {
    const auto value = json::parse((*file)->text);
    if (const auto* primary = value.at("primary").if_string()) record.primary = *primary;
    for (const auto& service : value.at("services").as_array()) {
      record.services.push_back(
          {.id = std::string(service.at("id").as_string()), .isConnection = service.at("isConnection").as_bool()});
    }
  } catch (const std::exception& error) {
    return Failure(0, fmt::format("{}: {}", proxyRecordName, error.what()));
  }
  return record;
}

Result<void> save(const ProxyRecord& record, const PrivateFolder& folder) {
  json::array services;
  for (const auto& [id, isConnection] : record.services) {
    services.push_back({{"id", id}, {"isConnection", isConnection}});
  }
  json::object object{{"primary", nullptr}, {"services", services}};
  if (record.primary) object["primary"] = *record.primary;
  auto replaced = folder.replace(proxyRecordName, json::serialize(object));
  if (!replaced) return replaced.error();
  return {};
}

/// The stored proxies of a service, in the form for desktop programs.
Result<DesktopProxy> proxyOf(PreferencesStore& store, const std::string& service) {
  auto value = store.find(fmt::format("/{}/{}/{}", preferences::networkServices, service, preferences::proxiesEntity));
  if (!value) return value.error();
  const auto* proxies = *value ? (*value)->if_object() : nullptr;
  if (!proxies) return DesktopProxy();
  if (hasOnlyInlineScript(*proxies)) {
    static std::once_flag isLogged;
    std::call_once(isLogged,
                   [] { systemLog("Desktop proxies: an inline PAC script is only passed to NetworkManager"); });
  }
  return desktopProxy(*proxies);
}

/// announce() over a private connection. Returns when the bus has received the signal.
Result<void> announceNow(const std::string& service) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  return attempt([&] {
    auto bus = openSystemBus(deadline).value();
    announce(bus.get(), service).value();
    // The bus reads messages in order: when it replies to this call, it has received the signal.
    sd_bus_message* made = nullptr;
    check(sd_bus_message_new_method_call(bus.get(), &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                         "org.freedesktop.DBus", "GetId"));
    const BusMessage request(made);
    callUntil(deadline, bus.get(), request.get(), nullptr).value();
  });
}

}  // namespace

void ProxyRecord::add(std::set<std::string> added) {
  std::erase_if(added, [](const auto& id) { return id.size() > maximumIDSize; });
  for (const auto& known : services) added.erase(known.id);
  for (const auto& service : added) services.push_back({.id = service});
  if (services.size() > maximumServices) {
    services.erase(services.begin(), services.end() - static_cast<std::ptrdiff_t>(maximumServices));
  }
}

void ProxyRecord::remove(const std::set<std::string>& removed) {
  std::erase_if(services, [&](const auto& known) { return removed.contains(known.id); });
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
  succeeded(attempt([&] {
    const auto database = DesktopDatabase::open(service_).value();
    published_ = database.openPublished().value();
    auto record = load(database.folder());
    // Only the next "stop" leaves a record again.
    database.folder().remove(proxyRecordName).value();
    record_ = std::move(record).value();
  }));
  succeeded(attempt([&] {
    end_ = EventSource::exit([this] {
      publishNone();
      withdrawDesktopProxies(service_);
    });
    primary_ = std::make_unique<PrimaryConnection>([this](const auto& primary) { setPrimary(primary); });
  }));
  if (record_.services.empty()) publishNone();  // also withdraws what a killed helper published
}

void DesktopProxies::keepForNext() {
  if (record_.services.empty()) return;
  succeeded(attempt([&] { save(record_, DesktopDatabase::open(service_).value().folder()).value(); }));
}

void DesktopProxies::setPrimary(const std::optional<std::string>& primary) {
  if (isPrimaryKnown_ && record_.primary == primary) return;
  isPrimaryKnown_ = true;
  record_.primary = primary;
  if (record_.services.empty()) return;
  auto store = PreferencesStore::open("/var/lib/" + service_);
  publish(succeeded(store) ? &*store : nullptr);
}

void DesktopProxies::publish(PreferencesStore& store, const std::set<std::string>& set,
                             const std::set<std::string>& off) {
  record_.add(set);
  record_.remove(off);
  publish(&store);
}

void DesktopProxies::publishForConnections(PreferencesStore& store, const std::set<std::string>& connections) {
  bool isNews = false;
  for (auto& [id, isConnection] : record_.services) {
    const bool wasConnection = std::exchange(isConnection, connections.contains(id));
    isNews = isNews || wasConnection != isConnection;
  }
  if (isNews) publish(&store);
}

void DesktopProxies::publishNone() {
  record_.services.clear();
  publish(nullptr);
}

void DesktopProxies::publish(PreferencesStore* store) {
  const auto before = std::move(published_);
  succeeded(attempt([&] { replacePublished(store); }));
  // replacePublished() may have failed to invalidate the previous database: its file or folder may be gone, or there
  // may be no descriptor left.
  succeeded(invalidate(before));
  auto* bus = primary_ ? primary_->bus() : nullptr;
  succeeded(bus ? announce(bus, service_) : Failure(0, "running programs cannot be notified without a system bus"));
}

void DesktopProxies::replacePublished(PreferencesStore* store) {
  const auto database = DesktopDatabase::open(service_).value();
  const auto source = record_.source();
  auto proxy = attempt([&] { return store && source ? proxyOf(*store, *source).value() : DesktopProxy(); });
  if (!succeeded(proxy)) proxy = DesktopProxy();
  std::vector<std::string> services;
  for (const auto& service : record_.services) services.push_back(service.id);
  database.publish(*proxy, source.value_or(""), services).value();
  published_ = database.openPublished().value();
}

bool withdrawDesktopProxies(const std::string& service) {
  const auto database = DesktopDatabase::open(service);
  if (!succeeded(database)) return false;
  bool isForgotten = succeeded(database->folder().remove(proxyRecordName));
  bool isOff = succeeded(database->publish({}, "", {}));
  succeeded(announceNow(service));
  return isForgotten && isOff;
}

}  // namespace platform
