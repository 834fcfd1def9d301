// The proxies and the IPv4 configuration of network services.
#include <boost/json.hpp>
#include <set>

#include "build_constants.h"
#include "foundation/HXJSON.h"
#include "helper/BRHMain.h"
#include "platform/network_settings/preferences.h"

namespace json = boost::json;
namespace preferences = platform::preferences;

namespace {

std::unique_ptr<preferences::Session> createSession() {
  return preferences::Session::create("BrimoHelper", HelperServiceName);
}

std::string entityPath(std::string_view serviceID, const char* entity) {
  return fmt::format("/{}/{}/{}", preferences::networkServices, serviceID, entity);
}

/// Writes and applies what was set, even when not all of it could be, and releases the session.
bool finish(std::unique_ptr<preferences::Session> session) {
  bool committed = session->commit();
  bool applied = session->apply();
  session->synchronize();
  session->unlock();
  return committed && applied;
}

/// What a value means where a boolean is asked for; absent when it is neither a boolean nor a number.
std::optional<bool> booleanMeaning(const json::value* value) {
  if (!value) return std::nullopt;
  if (const auto* boolean = value->if_bool()) return *boolean;
  if (value->is_number()) return value->to_number<double>() != 0;
  return std::nullopt;
}

/// The text of a member; empty when it is missing or no text.
std::string_view textMember(const json::object& object, const char* key) {
  const auto* value = object.if_contains(key);
  const auto* text = value ? value->if_string() : nullptr;
  return text ? std::string_view(*text) : std::string_view();
}

}  // namespace

bool BRHMain::applyProxySettings(const json::object& request) {
  const auto* value = request.if_contains("payload");
  const auto* payload = value ? value->if_object() : nullptr;
  if (!payload) {
    HX_log("Invalid proxy settings payload");
    return false;
  }
  auto session = createSession();
  if (!session) {
    HX_log("Failed to create SCPreferences session");
    return false;
  }
  if (!session->lock(true)) {
    HX_log("Failed to lock SCPreferences: {}", preferences::lastErrorText());
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
    bool set = session->setValue(entityPath(serviceID, preferences::proxiesEntity), proxies);
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
  auto session = createSession();
  if (!session) {
    HX_log("Failed to create SCPreferences session for cleanup");
    return;
  }
  if (!session->lock(true)) {
    HX_log("Failed to lock SCPreferences for cleanup: {}", preferences::lastErrorText());
    return;
  }
  bool ok = true;
  for (const auto& serviceID : *_serviceProxySettingsChanged) {
    // Empty rather than none: that switches every proxy of the service off.
    bool set = session->setValue(entityPath(serviceID, preferences::proxiesEntity), json::object());
    HX_log("Remove service {} proxy settings, result: {:d}", serviceID, set);
    ok = ok && set;
  }
  if (finish(std::move(session)) && ok) {
    _serviceProxySettingsChanged.reset();
  } else {
    HX_log("Proxy settings cleanup was incomplete: {}", preferences::lastErrorText());
  }
}

json::object BRHMain::setStaticIP(const json::object& request) {
  auto address = textMember(request, "address"), mask = textMember(request, "mask"),
       router = textMember(request, "router"), serviceID = textMember(request, "serviceID");
  if (address.empty() || mask.empty() || router.empty() || serviceID.empty() || serviceID.find('/') != serviceID.npos) {
    return {{"error", "invalid static IP configuration"}};
  }
  const json::object entity{{"Addresses", json::array{address}},
                            {"ConfigMethod", "Manual"},
                            {"Router", router},
                            {"SubnetMasks", json::array{mask}}};
  auto session = createSession();
  if (!session) return {{"error", "failed to create preferences session"}};
  if (!session->lock(true)) return {{"error", "failed to lock preferences"}};
  bool set = session->setValue(entityPath(serviceID, preferences::ipv4Entity), entity);
  HX_log("SCPreferencesPathSetValue result: {:d}", set);
  if (!finish(std::move(session)) || !set) return {{"error", "failed to apply static IP configuration"}};
  return {{"result", "success"}};
}
