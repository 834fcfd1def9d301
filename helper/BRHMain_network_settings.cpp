// The proxies and the IPv4 configuration of network services.
#include <boost/json.hpp>
#include <set>

#include "build_constants.h"
#include "foundation/HXJSON.h"
#include "helper/BRHMain.h"
#include "helper/reply.h"
#include "platform/base/json_text.h"
#include "platform/network_settings/preferences.h"

namespace json = boost::json;
namespace preferences = platform::preferences;

namespace {

platform::Result<std::unique_ptr<preferences::Session>> createSession() {
  return preferences::Session::create("BrimoHelper", HelperServiceName);
}

std::string entityPath(std::string_view serviceID, const char* entity) {
  return fmt::format("/{}/{}/{}", preferences::networkServices, serviceID, entity);
}

/// Writes and applies what was set, even when not all of it could be, and releases the session. Fails as the last step
/// that failed.
platform::Result<void> finish(std::unique_ptr<preferences::Session> session) {
  auto committed = session->commit();
  auto applied = session->apply();
  session->synchronize();
  session->unlock();
  return applied ? committed : applied;
}

/// What a value means where a boolean is asked for; absent when it is neither a boolean nor a number.
std::optional<bool> booleanMeaning(const json::value* value) {
  if (!value) return std::nullopt;
  if (const auto* boolean = value->if_bool()) return *boolean;
  if (value->is_number()) return value->to_number<double>() != 0;
  return std::nullopt;
}

}  // namespace

bool BRHMain::applyProxySettings(const json::object& request) {
  const auto* value = request.if_contains("payload");
  const auto* payload = value ? value->if_object() : nullptr;
  if (!payload) {
    HX_log("Invalid proxy settings payload");
    return false;
  }
  auto created = createSession();
  if (!created) {
    HX_log("Failed to create SCPreferences session");
    return false;
  }
  auto session = std::move(*created);
  if (auto locked = session->lock(true); !locked) {
    HX_log("Failed to lock SCPreferences: {}", locked.error().what());
    return false;
  }
  bool ok = true;
  for (const auto& [key, proxies] : *payload) {
    std::string_view serviceID = key;
    if (!proxies.is_object() || serviceID.find('/') != serviceID.npos) {
      HX_log("Invalid proxy settings entry: {}", serviceID);
      ok = false;
      continue;
    }
    bool set = session->setValue(entityPath(serviceID, preferences::proxiesEntity), proxies).has_value();
    HX_log("Update service {} proxy settings to: {}, result: {:d}", serviceID,
           HX_JSONString(proxies).value_or("(null)"), set);
    ok = ok && set;
  }
  ok = finish(std::move(session)) && ok;

  auto cleanup = booleanMeaning(request.if_contains("cleanup"));
  if (cleanup == true && ok) _serviceProxySettingsChanged.reset();
  if (cleanup == false) {
    auto& changed = _serviceProxySettingsChanged;
    if (!changed) changed.emplace();
    const std::set<std::string, std::less<>> known(changed->begin(), changed->end());
    for (const auto& entry : *payload) {
      std::string_view serviceID = entry.key();
      if (!known.contains(serviceID)) changed->emplace_back(serviceID);
    }
  }
  return ok;
}

void BRHMain::cleanupProxySettings() {
  if (!_serviceProxySettingsChanged) return;
  HX_log("cleanupProxySettings");
  auto created = createSession();
  if (!created) {
    HX_log("Failed to create SCPreferences session for cleanup");
    return;
  }
  auto session = std::move(*created);
  if (auto locked = session->lock(true); !locked) {
    HX_log("Failed to lock SCPreferences for cleanup: {}", locked.error().what());
    return;
  }
  platform::Result<void> outcome;  // of the last step that failed
  for (const auto& serviceID : *_serviceProxySettingsChanged) {
    // Empty rather than none: that switches every proxy of the service off.
    auto set = session->setValue(entityPath(serviceID, preferences::proxiesEntity), json::object());
    HX_log("Remove service {} proxy settings, result: {:d}", serviceID, set.has_value());
    if (!set) outcome = set;
  }
  if (auto finished = finish(std::move(session)); !finished) outcome = finished;
  if (outcome) {
    _serviceProxySettingsChanged.reset();
  } else {
    HX_log("Proxy settings cleanup was incomplete: {}", outcome.error().what());
  }
}

json::object BRHMain::setProxy(const json::object& request, const platform::ipc::Connection&) {
  return applyProxySettings(request) ? BRHSuccess() : BRHError("failed to apply proxy settings");
}

json::object BRHMain::setStaticIP(const json::object& request, const platform::ipc::Connection&) {
  auto address = platform::textMember(request, "address"), mask = platform::textMember(request, "mask"),
       router = platform::textMember(request, "router"), serviceID = platform::textMember(request, "serviceID");
  if (address.empty() || mask.empty() || router.empty() || serviceID.empty() || serviceID.find('/') != serviceID.npos) {
    return BRHError("invalid static IP configuration");
  }
  const json::object entity{{"Addresses", json::array{address}},
                            {"ConfigMethod", "Manual"},
                            {"Router", router},
                            {"SubnetMasks", json::array{mask}}};
  auto created = createSession();
  if (!created) return BRHError("failed to create preferences session");
  auto session = std::move(*created);
  if (!session->lock(true)) return BRHError("failed to lock preferences");
  bool set = session->setValue(entityPath(serviceID, preferences::ipv4Entity), entity).has_value();
  HX_log("SCPreferencesPathSetValue result: {:d}", set);
  if (!finish(std::move(session)) || !set) return BRHError("failed to apply static IP configuration");
  return BRHSuccess();
}
