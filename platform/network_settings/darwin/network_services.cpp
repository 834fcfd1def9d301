// The network services of the default network preferences.
#include "platform/network_settings/network_services.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/base/darwin/core_foundation.h"

namespace platform {

Result<std::vector<NetworkService>> networkServices() {
  CFOwner<SCPreferencesRef> preferences(SCPreferencesCreate(kCFAllocatorDefault, CFSTR("BrimoHelper"), nullptr));
  CFOwner<CFArrayRef> all(preferences ? SCNetworkServiceCopyAll(preferences.get()) : nullptr);
  if (!all) return Failure(SCError(), SCErrorString(SCError()));

  std::vector<NetworkService> services;
  for (CFIndex index = 0; index < CFArrayGetCount(all.get()); ++index) {
    const auto service = static_cast<SCNetworkServiceRef>(CFArrayGetValueAtIndex(all.get(), index));
    const auto interface = SCNetworkServiceGetInterface(service);
    services.push_back({.id = textOf(SCNetworkServiceGetServiceID(service)),
                        .name = textOf(SCNetworkServiceGetName(service)),
                        .interface = textOf(interface ? SCNetworkInterfaceGetBSDName(interface) : nullptr)});
  }
  return services;
}

}  // namespace platform
