// The address of a service's socket.
#pragma once

#include <sys/un.h>

#include <cstring>
#include <optional>
#include <string>

namespace platform::ipc {

inline std::string endpointPath(const std::string& serviceName) {
  return "/run/" + serviceName + ".socket";
}

/// The path as a socket address; absent if it is too long (unix(7)).
inline std::optional<sockaddr_un> endpointAddress(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) return std::nullopt;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

}  // namespace platform::ipc
