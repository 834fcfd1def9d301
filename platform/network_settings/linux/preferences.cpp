#include "platform/network_settings/preferences.h"

#include <fmt/format.h>

#include <atomic>
#include <boost/json.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <set>

#include "build_constants.h"
#include "platform/network_settings/linux/desktop_proxies.h"
#include "platform/network_settings/linux/network_manager.h"
#include "platform/network_settings/linux/store.h"
#include "platform/system/system_log.h"

namespace platform::preferences {

namespace {

thread_local std::string lastError = "Success!";

// Until when a NetworkManager that did not answer is not asked again: else each of many clients that leave would cost
// the whole wait.
std::atomic<std::chrono::steady_clock::time_point> leftAloneUntil{};
constexpr std::chrono::seconds rest(5);

// Of the process that serves; null in any other. Never destroyed: the main loop calls it to the end.
DesktopProxies* desktop = nullptr;

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

/// The entity that a path leads to; absent when it leads elsewhere.
std::optional<Entity> entityOf(std::string_view path) {
  const std::string start = fmt::format("/{}/", networkServices);
  if (!path.starts_with(start)) return std::nullopt;
  path.remove_prefix(start.size());
  auto slash = path.find('/');
  if (slash == path.npos || slash != path.rfind('/')) return std::nullopt;
  return Entity(path.substr(0, slash), path.substr(slash + 1));
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
  void publish();
  void project(const std::string& service, const NetworkManager::Path& connection, NetworkManager& manager,
               const std::multimap<NetworkManager::Path, NetworkManager::Device>& active);
};

// NetworkManager is a mirror of the store: without it, there is nothing more to apply to than the store itself. But
// what a service once had there is not undone by its absence.
void Session::Implementation::apply() {
  publish();  // first, since NetworkManager may have to be waited for
  if (committed.empty()) return;
  if (std::chrono::steady_clock::now() < leftAloneUntil.load()) {
    throw std::runtime_error("NetworkManager did not answer a moment ago");
  }
  std::set<std::string> services;
  for (const auto& [service, entity] : committed) services.insert(service);
  auto projected = store.projectedServices();
  std::string problems;
  auto attempt = [&](const std::string& service, const std::function<void()>& step) {
    try {
      step();
    } catch (const NetworkManager::Unavailable&) {
      throw;  // so it would be for the others
    } catch (const std::exception& error) {
      problems += fmt::format("{}{}: {}", problems.empty() ? "" : "; ", service, error.what());
    }
  };
  try {
    NetworkManager manager;
    std::map<std::string, NetworkManager::Path> connections;  // by service
    for (const auto& service : services) {
      attempt(service, [&] {
        auto connection = manager.findConnection(service);
        if (connection) {
          connections.emplace(service, *connection);
          projected.insert(service);
        } else {
          projected.erase(service);
        }
      });
    }
    // Before anything is projected: afterwards it would be unknown to a helper that ended in between.
    if (projected != store.projectedServices()) store.setProjectedServices(projected);
    auto active = connections.empty() ? decltype(manager.activeDevices()){} : manager.activeDevices();
    for (const auto& found : connections) {
      attempt(found.first, [&] { project(found.first, found.second, manager, active); });
    }
  } catch (const NetworkManager::Absent& absence) {
    for (const auto& service : services) {
      if (projected.contains(service)) throw;
    }
    static std::once_flag isLogged;
    std::call_once(isLogged,
                   [&] { systemLog(fmt::format("Network preferences are only stored: {}", absence.what())); });
  } catch (const NetworkManager::Unavailable&) {
    leftAloneUntil = std::chrono::steady_clock::now() + rest;
    throw;
  }
  if (desktop) desktop->publishKnowing(store, projected);
  if (!problems.empty()) throw std::runtime_error(problems);
  committed.clear();
}

void Session::Implementation::publish() {
  if (!desktop) return;
  std::set<std::string> set, off;
  for (const auto& [service, entity] : committed) {
    if (entity == proxiesEntity) set.insert(service);
  }
  for (const auto& [service, entity] : changed) {
    const auto* value = entity == proxiesEntity ? store.find(pathOf({service, entity})) : nullptr;
    const auto* proxies = value ? value->if_object() : nullptr;
    if (proxies && proxies->empty()) off.insert(service);
  }
  if (!changed.empty()) store.forget();  // what could not be committed
  desktop->publish(store, set, off);
}

void Session::Implementation::project(const std::string& service, const NetworkManager::Path& connection,
                                      NetworkManager& manager,
                                      const std::multimap<NetworkManager::Path, NetworkManager::Device>& active) {
  // Only what was set: the rest may have been changed in NetworkManager since.
  auto value = [&](const char* entity) {
    const auto* found = committed.contains({service, entity}) ? store.find(pathOf({service, entity})) : nullptr;
    return found ? found->if_object() : nullptr;
  };
  NetworkManager::Change change;
  if (const auto* proxies = value(proxiesEntity)) change.proxy = projectProxies(*proxies);
  if (const auto* ipv4 = value(ipv4Entity)) change.ipv4 = projectIPv4(*ipv4);
  if (!change.proxy && !change.ipv4) return;
  manager.update(connection, change);
  auto [first, last] = active.equal_range(connection);
  for (auto device = first; device != last; ++device) manager.reapply(device->second.path, change);
}

std::unique_ptr<Session> Session::create(const std::string&) {
  lastError = "Success!";
  std::unique_ptr<Session> session;
  succeeds([&] { session = std::make_unique<Session>(std::make_unique<Implementation>()); });
  if (!session && desktop) desktop->publishNone();
  return session;
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Session::~Session() = default;

bool Session::lock(bool wait) {
  bool isLocked = succeeds([&] { implementation_->store.lock(wait); });
  if (!isLocked && desktop) desktop->publishNone();
  return isLocked;
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

void keepApplied(const std::string& store) {
  desktop = new DesktopProxies(store);
  desktop->start();
}

std::string lastErrorText() {
  return lastError;
}

}  // namespace platform::preferences
