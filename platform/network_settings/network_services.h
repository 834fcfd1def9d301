// The network services of this machine, identified as in the network preferences.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace platform {

/// A network service. On Linux, a connection of NetworkManager: its UUID, its name, and the interface on which it is
/// active.
struct NetworkService {
  std::string id;
  std::string name;
  std::string interface;   ///< empty if there is none; on Linux known only for active connections
  bool isPrimary = false;  ///< whether it carries the default route; true for at most one service
};

/// All network services. Needs no privilege.
Result<std::vector<NetworkService>> networkServices();

}  // namespace platform
