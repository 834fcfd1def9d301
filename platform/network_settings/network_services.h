// The network services of this machine, by the IDs that the network preferences know them by.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace platform {

/// On Linux a NetworkManager connection: its UUID, its name, and the interface that it is active on.
struct NetworkService {
  std::string id;
  std::string name;
  std::string interface;   ///< empty when there is none; on Linux only that of an active one is known
  bool isPrimary = false;  ///< whether it leads to the network at large; of all services at most one
};

/// All services. Needs no privilege.
Result<std::vector<NetworkService>> networkServices();

}  // namespace platform
