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

/// Returns a locked session, or null after it has logged why there is none. `purpose` becomes part of the message.
std::unique_ptr<preferences::Session> createLockedSession(const char* purpose = "") {
  auto session = createSession();
  if (!session) {
    HX_log<BRHMain>("Failed to create SCPreferences session{}", purpose);
    return nullptr;
  }
  if (auto locked = (*session)->lock(true); !locked) {
    HX_log<BRHMain>("Failed to lock SCPreferences{}: {}", purpose, locked.error().what());
    return nullptr;
  }
  return std::move(*session);
}

std::string entityPath(std::string_view serviceID, const char* entity) {
  return fmt::format("/{}/{}/{}", preferences::networkServices, serviceID, entity);
}

/// Commits and applies the changes, even when some values could not be set, and ends the session. Returns the failure
/// of the last step that failed.
platform::Result<void> finish(std::unique_ptr<preferences::Session> session) {
  auto committed = session->commit();
  auto applied = session->apply();
  session->synchronize();
  session->unlock();
  return applied ? committed : applied;
}

/// A value as a boolean: numbers other than 0 are true. Absent when it is neither a boolean nor a number.
std::optional<bool> booleanValue(const json::value* value) {
  if (!value) return std::nullopt;
  if (const auto* boolean = value->if_bool()) return *boolean;
  if (value->is_number()) return value->to_number<double>() != 0;
  return std::nullopt;
}

/// Adds the services of a payload that the list does not contain yet.
void addServices(std::optional<std::vector<std::string>>& list, const json::object& payload) {
  if (!list) list.emplace();
  const std::set<std::string, std::less<>> known(list->begin(), list->end());
  for (const auto& entry : payload) {
    std::string_view serviceID = entry.key();
    if (!known.contains(serviceID)) list->emplace_back(serviceID);
  }
}

}  // namespace

bool BRHMain::applyProxySettings(const json::object& request) {
  const auto* value = request.if_contains("payload");
  const auto* payload = value ? value->if_object() : nullptr;
  if (!payload) {
    HX_log("Invalid proxy settings payload");
    return false;
  }
  auto session = createLockedSession();
  if (!session) return false;
  bool isComplete = true;
  for (const auto& [key, proxies] : *payload) {
    std::string_view serviceID = key;
    if (!proxies.is_object() || serviceID.find('/') != serviceID.npos) {
      HX_log("Invalid proxy settings entry: {}", serviceID);
      isComplete = false;
      continue;
    }
    bool isSet = session->setValue(entityPath(serviceID, preferences::proxiesEntity), proxies).has_value();
    HX_log("Update service {} proxy settings to: {}, result: {:d}", serviceID,
           HX_JSONString(proxies).value_or("(null)"), isSet);
    isComplete = isComplete && isSet;
  }
  isComplete = finish(std::move(session)) && isComplete;

  auto cleanup = booleanValue(request.if_contains("cleanup"));
  if (cleanup == true && isComplete) _serviceProxySettingsChanged.reset();
  if (cleanup == false) addServices(_serviceProxySettingsChanged, *payload);
  return isComplete;
}

void BRHMain::cleanupProxySettings() {
  if (!_serviceProxySettingsChanged) return;
  HX_log("cleanupProxySettings");
  auto session = createLockedSession(" for cleanup");
  if (!session) return;
  platform::Result<void> outcome;  // the last failure
  for (const auto& serviceID : *_serviceProxySettingsChanged) {
    // An empty dictionary, rather than no dictionary, switches every proxy of the service off.
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
  bool isSet = session->setValue(entityPath(serviceID, preferences::ipv4Entity), entity).has_value();
  HX_log("SCPreferencesPathSetValue result: {:d}", isSet);
  if (!finish(std::move(session)) || !isSet) return BRHError("failed to apply static IP configuration");
  return BRHSuccess();
}
