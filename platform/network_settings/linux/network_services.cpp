#include "platform/network_settings/network_services.h"

#include "platform/network_settings/linux/network_manager.h"

namespace platform {

Result<std::vector<NetworkService>> networkServices() {
  NetworkManager manager;
  auto active = manager.activeDevices();
  if (!active) return active.error();
  auto connections = manager.connections();
  if (!connections) return connections.error();
  auto primary = manager.primaryConnection();
  if (!primary) return primary.error();
  std::vector<NetworkService> services;
  for (auto& [path, uuid, name, proxy] : *connections) {
    auto device = active->find(path);
    services.push_back({.id = std::move(uuid),
                        .name = std::move(name),
                        .interface = device == active->end() ? "" : device->second.interface,
                        .isPrimary = path == *primary});
  }
  return services;
}

}  // namespace platform
