#include "platform/network_services.h"

#include "platform/linux/network_manager.h"

namespace platform {

std::vector<NetworkService> networkServices() {
  NetworkManager manager;
  auto active = manager.activeDevices();
  std::vector<NetworkService> services;
  for (const auto& connection : manager.connections()) {
    auto [uuid, name] = manager.identity(connection);
    auto device = active.find(connection);
    services.push_back({.id = std::move(uuid),
                        .name = std::move(name),
                        .interface = device == active.end() ? "" : manager.interfaceName(device->second)});
  }
  return services;
}

}  // namespace platform
