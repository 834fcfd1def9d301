#include "platform/network_settings/network_services.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/base/darwin/core_foundation.h"
#include "platform/base/json_text.h"
#include "platform/network_settings/darwin/property_list.h"

namespace platform {

namespace {

/// The ID of the service that carries the default route; empty if there is none.
std::string primaryService() {
  CFOwner<CFPropertyListRef> state(SCDynamicStoreCopyValue(nullptr, CFSTR("State:/Network/Global/IPv4")));
  auto value = state ? jsonValue(state.get()) : std::nullopt;
  const auto* object = value ? value->if_object() : nullptr;
  return object ? std::string(textMember(*object, "PrimaryService")) : std::string();
}

}  // namespace

Result<std::vector<NetworkService>> networkServices() {
  CFOwner<SCPreferencesRef> preferences(SCPreferencesCreate(kCFAllocatorDefault, CFSTR("BrimoHelper"), nullptr));
  CFOwner<CFArrayRef> all(preferences ? SCNetworkServiceCopyAll(preferences.get()) : nullptr);
  if (!all) return Failure(SCError(), SCErrorString(SCError()));

  const auto primary = primaryService();
  std::vector<NetworkService> services;
  for (CFIndex index = 0; index < CFArrayGetCount(all.get()); ++index) {
    const auto service = static_cast<SCNetworkServiceRef>(CFArrayGetValueAtIndex(all.get(), index));
    const auto interface = SCNetworkServiceGetInterface(service);
    auto id = textOf(SCNetworkServiceGetServiceID(service));
    const bool isPrimary = !id.empty() && id == primary;
    services.push_back({.id = std::move(id),
                        .name = textOf(SCNetworkServiceGetName(service)),
                        .interface = textOf(interface ? SCNetworkInterfaceGetBSDName(interface) : nullptr),
                        .isPrimary = isPrimary});
  }
  return services;
}

}  // namespace platform
