#include "platform/preferences.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json.hpp>
#include <functional>
#include <map>
#include <mutex>
#include <set>

#include "build_constants.h"
#include "platform/linux/network_manager.h"
#include "platform/linux/preferences_store.h"
#include "platform/system_log.h"

namespace platform::preferences {

namespace {

thread_local std::string lastError = "Success!";

void fail(const std::string& text) {
  lastError = text;
  systemLog("Network preferences: " + text);
}

/// Whether a step went well; what it throws becomes the last error.
bool succeeds(const std::function<void()>& step) {
  try {
    step();
    return true;
  } catch (const std::exception& error) {
    fail(error.what());
    return false;
  }
}

/// A service and one of its entities.
using Entity = std::pair<std::string, std::string>;

std::string pathOf(const Entity& entity) {
  return fmt::format("/{}/{}/{}", networkServices, entity.first, entity.second);
}

/// The entity that a path leads to or into; absent when it leads elsewhere.
std::optional<Entity> entityOf(std::string_view path) {
  const std::string start = fmt::format("/{}/", networkServices);
  if (!path.starts_with(start)) return std::nullopt;
  path.remove_prefix(start.size());
  auto slash = path.find('/');
  if (slash == path.npos) return std::nullopt;
  auto entity = path.substr(slash + 1);
  return Entity(path.substr(0, slash), entity.substr(0, entity.find('/')));
}

}  // namespace

class Session::Implementation {
 public:
  Implementation() : store(fmt::format("/var/lib/{}", HelperServiceName)) {}

  void apply();

  PreferencesStore store;
  std::set<Entity> changed;    ///< set and not yet committed
  std::set<Entity> committed;  ///< and not yet applied

 private:
  void project(NetworkManager& manager, const std::map<std::string, std::string>& connections);
};

// NetworkManager is a mirror of the store: without it, there is nothing more to apply to than the store itself. But
// what a service once had there is not undone by its absence.
void Session::Implementation::apply() {
  if (committed.empty()) return;
  auto projected = store.projectedServices();
  try {
    NetworkManager manager;
    std::map<std::string, std::string> connections;  // by service
    auto known = projected.size();
    for (const auto& [service, entity] : committed) {
      auto connection = manager.findConnection(service);
      if (!connection) continue;
      connections.emplace(service, *connection);
      projected.insert(service);
    }
    // Before anything is projected: afterwards it would be unknown to a helper that ended in between.
    if (projected.size() > known) store.setProjectedServices(projected);
    project(manager, connections);
  } catch (const NetworkManager::Absent& absence) {
    for (const auto& [service, entity] : committed) {
      if (projected.contains(service)) throw;
    }
    static std::once_flag isLogged;
    std::call_once(isLogged,
                   [&] { systemLog(fmt::format("Network preferences are only stored: {}", absence.what())); });
  }
  committed.clear();
}

void Session::Implementation::project(NetworkManager& manager, const std::map<std::string, std::string>& connections) {
  if (connections.empty()) return;
  auto active = manager.activeDevices();
  std::string problems;
  for (const auto& [service, connection] : connections) {
    try {
      // Only what was set: the rest may have been changed in NetworkManager since.
      auto value = [&, &id = service](const char* entity) {
        const auto* found = committed.contains({id, entity}) ? store.find(pathOf({id, entity})) : nullptr;
        return found ? found->if_object() : nullptr;
      };
      std::optional<ProxySetting> proxy;
      std::optional<IPv4Setting> ipv4;
      if (const auto* proxies = value(proxiesEntity)) proxy = projectProxies(*proxies);
      if (const auto* entity = value(ipv4Entity)) ipv4 = projectIPv4(*entity);
      if (!proxy && !ipv4) continue;
      manager.update(connection, proxy, ipv4);
      auto [first, last] = active.equal_range(connection);
      for (auto device = first; device != last; ++device) manager.reapply(device->second.path);
    } catch (const NetworkManager::Unavailable&) {
      throw;  // so it would be for the others
    } catch (const std::exception& error) {
      problems += fmt::format("{}{}: {}", problems.empty() ? "" : "; ", service, error.what());
    }
  }
  if (!problems.empty()) throw std::runtime_error(problems);
}

std::unique_ptr<Session> Session::create(const std::string&) {
  lastError = "Success!";
  std::unique_ptr<Session> session;
  succeeds([&] { session = std::make_unique<Session>(std::make_unique<Implementation>()); });
  return session;
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Session::~Session() = default;

bool Session::lock(bool wait) {
  return succeeds([&] { implementation_->store.lock(wait); });
}

bool Session::setValue(const std::string& path, const boost::json::value& value) {
  return succeeds([&] {
    implementation_->store.set(path, value);
    if (auto entity = entityOf(path)) implementation_->changed.insert(*entity);
  });
}

bool Session::commit() {
  return succeeds([&] {
    implementation_->store.commit();
    implementation_->committed.merge(implementation_->changed);
  });
}

bool Session::apply() {
  return succeeds([&] { implementation_->apply(); });
}

void Session::synchronize() {
  implementation_->store.forget();
  implementation_->changed.clear();
}

void Session::unlock() {
  implementation_->store.unlock();
}

std::string lastErrorText() {
  return lastError;
}

}  // namespace platform::preferences
