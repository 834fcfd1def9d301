#include "platform/network_settings/preferences.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>

#include "platform/dispatch/linux/event_loop.h"
#include "platform/network_settings/linux/desktop_proxies.h"
#include "platform/network_settings/linux/network_manager.h"
#include "platform/network_settings/linux/store.h"
#include "platform/system/system_log.h"

namespace platform::preferences {

namespace {

// After a timeout, NetworkManager is not asked again before this time. Otherwise the clean-up after each client would
// take five seconds.
std::atomic<std::chrono::steady_clock::time_point> leftAloneUntil{};
constexpr std::chrono::seconds rest(5);

// Null except in the serving process. Never destroyed, because the main loop calls it to the end.
DesktopProxies* desktop = nullptr;

/// Returns the result of a step; a failure also goes to the system log.
template <class Value>
Result<Value> logged(Result<Value> step) {
  if (!step) systemLog(fmt::format("Network preferences: {}", step.error().what()));
  return step;
}

/// A service and one of its entities.
using Entity = std::pair<std::string, std::string>;

std::string pathOf(const Entity& entity) {
  return fmt::format("/{}/{}/{}", networkServices, entity.first, entity.second);
}

/// The entity at a path; absent if the path leads elsewhere.
std::optional<Entity> entityOf(std::string_view path) {
  const std::string start = fmt::format("/{}/", networkServices);
  if (!path.starts_with(start)) return std::nullopt;
  path.remove_prefix(start.size());
  auto slash = path.find('/');
  if (slash == path.npos || slash != path.rfind('/')) return std::nullopt;
  return Entity(path.substr(0, slash), path.substr(slash + 1));
}

/// Hands committed changes on to NetworkManager, once. NetworkManager only mirrors the store, so while it is absent,
/// storing is enough. But if settings of a changed service were handed on before, the handover then fails.
class Handover {
 public:
  Handover(PreferencesStore& store, const std::set<Entity>& committed)
      : store_(store), committed_(committed), projected_(store.projectedServices()) {}

  Result<void> run();

 private:
  // These throw a Failure that concerns all services; failures of single services are collected in `problems_`.
  void findConnections();
  void recordProjected();
  void projectAll();

  NetworkManager::Change changeOf(const std::string& service);
  bool isMirrored() const;
  void note(const std::string& service, const Result<void>& step);

  PreferencesStore& store_;
  const std::set<Entity>& committed_;
  std::set<std::string> projected_;
  NetworkManager manager_;
  std::map<std::string, std::optional<NetworkManager::Path>> services_;  // the changed services and their connections
  std::string problems_;
};

Result<void> Handover::run() {
  if (std::chrono::steady_clock::now() < leftAloneUntil.load()) {
    return Failure(0, "NetworkManager did not answer a moment ago");
  }
  auto done = attempt([this] {
    findConnections();
    recordProjected();
    projectAll();
  });
  if (!done && manager_.presence() == NetworkManager::Presence::absent && !isMirrored()) {
    static std::once_flag isLogged;
    std::call_once(isLogged,
                   [&] { systemLog(fmt::format("Network preferences are only stored: {}", done.error().what())); });
  } else if (!done) {
    if (manager_.presence() == NetworkManager::Presence::silent) {
      leftAloneUntil = std::chrono::steady_clock::now() + rest;
    }
    return done;
  }
  if (desktop) desktop->publishForConnections(store_, projected_);
  if (!problems_.empty()) return Failure(0, problems_);
  return {};
}

void Handover::findConnections() {
  for (const auto& [service, entity] : committed_) services_.try_emplace(service);
  std::vector<std::string> uuids;
  for (const auto& [service, connection] : services_) uuids.push_back(service);
  auto found = manager_.findConnections(uuids).value();
  auto next = found.begin();
  for (auto& entry : services_) {
    note(entry.first, attempt([&] {
           entry.second = (next++)->value();
           if (entry.second) {
             projected_.insert(entry.first);
           } else {
             projected_.erase(entry.first);
           }
         }));
  }
}

// Recorded before anything is handed on; otherwise a helper killed in between would leave settings that no later
// helper knows about.
void Handover::recordProjected() {
  if (projected_ != store_.projectedServices()) store_.setProjectedServices(projected_).value();
}

void Handover::projectAll() {
  auto isKnown = [](const auto& service) { return service.second.has_value(); };
  if (std::none_of(services_.begin(), services_.end(), isKnown)) return;
  const auto active = manager_.activeDevices().value();
  std::vector<std::string> services;
  std::vector<std::pair<NetworkManager::Path, NetworkManager::Change>> changes;
  for (const auto& entry : services_) {
    if (!entry.second) continue;
    note(entry.first, attempt([&] {
           auto change = changeOf(entry.first);
           if (!change.proxy && !change.ipv4) return;
           services.push_back(entry.first);
           changes.emplace_back(*entry.second, std::move(change));
         }));
  }
  auto updates = manager_.update(changes).value();
  for (std::size_t index = 0; index < changes.size(); ++index) {
    const auto& entry = changes[index];
    note(services[index], attempt([&] {
           updates[index].value();
           auto [first, last] = active.equal_range(entry.first);
           for (auto device = first; device != last; ++device) {
             manager_.reapply(device->second.path, entry.second).value();
           }
         }));
  }
}

// Only entities that were set: the others may have been changed in NetworkManager since.
NetworkManager::Change Handover::changeOf(const std::string& service) {
  static const boost::json::object none;
  auto value = [&](const char* entity) -> const boost::json::object* {
    if (!committed_.contains({service, entity})) return nullptr;
    const auto* found = store_.find(pathOf({service, entity})).value();
    return found ? found->if_object() : &none;
  };
  NetworkManager::Change change;
  if (const auto* proxies = value(proxiesEntity)) change.proxy = projectProxies(*proxies).value();
  if (const auto* ipv4 = value(ipv4Entity)) change.ipv4 = projectIPv4(*ipv4).value();
  return change;
}

bool Handover::isMirrored() const {
  return std::any_of(services_.begin(), services_.end(),
                     [this](const auto& service) { return projected_.contains(service.first); });
}

void Handover::note(const std::string& service, const Result<void>& step) {
  if (step) return;
  // The other services would fail in the same way.
  if (manager_.presence() != NetworkManager::Presence::there) throw step.error();
  problems_ += fmt::format("{}{}: {}", problems_.empty() ? "" : "; ", service, step.error().what());
}

}  // namespace

class Session::Implementation {
 public:
  explicit Implementation(PreferencesStore opened) : store(std::move(opened)) {}

  PreferencesStore store;
  std::set<Entity> changed;    ///< set, not yet committed
  std::set<Entity> committed;  ///< committed, not yet applied
  std::set<std::string> off;   ///< the services in `changed` whose proxies become an empty dictionary

  void note(const Entity& entity, const boost::json::value& value);
  Result<void> commit();
  void publish();

 private:
  Result<void> commitOff();
};

void Session::Implementation::note(const Entity& entity, const boost::json::value& value) {
  changed.insert(entity);
  if (entity.second != proxiesEntity) return;
  if (value == boost::json::object()) {
    off.insert(entity.first);
  } else {
    off.erase(entity.first);
  }
}

Result<void> Session::Implementation::commit() {
  auto done = store.commit();
  if (!done && done.error().number == EFBIG && !off.empty() && commitOff() && changed.empty()) return {};
  if (done) {
    committed.merge(changed);
    off.clear();
  }
  return done;
}

/// Discards the changes except for those that switch proxies off, and commits these: they never make the store longer.
Result<void> Session::Implementation::commitOff() {
  return attempt([this] {
    store.forget();
    for (const auto& service : off) {
      const auto path = pathOf({service, proxiesEntity});
      if (store.find(path).value()) store.set(path, boost::json::object()).value();
    }
    store.commit().value();
    for (const auto& service : off) committed.insert(changed.extract({service, proxiesEntity}));
    off.clear();
  });
}

void Session::Implementation::publish() {
  if (!desktop) return;
  std::set<std::string> set;
  for (const auto& [service, entity] : committed) {
    if (entity == proxiesEntity) set.insert(service);
  }
  if (!changed.empty()) store.forget();  // discards changes that could not be committed
  desktop->publish(store, set, off);
}

Result<std::unique_ptr<Session>> Session::create(const std::string&, const std::string& folder) {
  auto store = logged(PreferencesStore::open("/var/lib/" + folder));
  if (!store && desktop) desktop->publishNone();
  if (!store) return store.error();
  return std::make_unique<Session>(std::make_unique<Implementation>(std::move(*store)));
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Session::~Session() = default;

Result<void> Session::lock(bool wait) {
  auto locked = logged(implementation_->store.lock(wait));
  if (!locked && desktop) desktop->publishNone();
  return locked;
}

Result<void> Session::setValue(const std::string& path, const boost::json::value& value) {
  feedWatchdog();  // a request may set hundreds of thousands of values
  auto set = logged(implementation_->store.set(path, value));
  auto entity = entityOf(path);
  if (set && entity) implementation_->note(*entity, value);
  return set;
}

Result<void> Session::commit() {
  return logged(implementation_->commit());
}

Result<void> Session::apply() {
  implementation_->publish();  // first, because NetworkManager may take long
  if (implementation_->committed.empty()) return {};
  auto applied = logged(Handover(implementation_->store, implementation_->committed).run());
  if (applied) implementation_->committed.clear();
  return applied;
}

void Session::synchronize() {
  implementation_->store.forget();
  implementation_->changed.clear();
  implementation_->off.clear();
}

void Session::unlock() {
  implementation_->store.unlock();
}

void keepApplied(const std::string& store) {
  desktop = new DesktopProxies(store);
  desktop->start();
  std::atexit([] { desktop->keepForNext(); });  // "stop" undoes nothing; a killed helper leaves no record
}

bool withdraw(const std::string& store) {
  return withdrawDesktopProxies(store);
}

}  // namespace platform::preferences
