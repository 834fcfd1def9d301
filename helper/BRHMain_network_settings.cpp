// The proxies and the IPv4 configuration of network services.
#include <boost/json.hpp>
#include <set>

#include "foundation/HXJSON.h"
#include "helper/BRHMain.h"
#include "helper/reply.h"
#include "platform/base/json_text.h"
#include "platform/network_settings/preferences.h"

namespace json = boost::json;
namespace preferences = platform::preferences;

namespace {

constexpr char sessionName[] = "BrimoHelper";

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

}  // namespace

bool BRHMain::applyProxySettings(const json::object& request) {
  const auto* value = request.if_contains("payload");
  const auto* payload = value ? value->if_object() : nullptr;
  if (!payload) {
    HX_log("Invalid proxy settings payload");
    return false;
  }
  auto session = preferences::Session::create(sessionName);
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
  auto session = preferences::Session::create(sessionName);
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
  auto session = preferences::Session::create(sessionName);
  if (!session) return BRHError("failed to create preferences session");
  if (!session->lock(true)) return BRHError("failed to lock preferences");
  bool set = session->setValue(entityPath(serviceID, preferences::ipv4Entity), entity);
  HX_log("SCPreferencesPathSetValue result: {:d}", set);
  if (!finish(std::move(session)) || !set) return BRHError("failed to apply static IP configuration");
  return BRHSuccess();
}
