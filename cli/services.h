// Network services as people call them.
#pragma once

#include <string>

#include "cli/answer.h"

namespace brimo {

/// The services of this machine.
Answer listServices();

/// Which proxies are set, where, and who obeys them.
Answer listProxies();

/// The ID of the service that a person called "primary", the one that leads to the network at large, or by its ID, the
/// interface that it is active on, or its name, in this order. Throws UsageError when several are called so, and
/// CommandFailure (exitNotFound) when none is, unless `isForced`: then the text is the ID. So it is where the system
/// does not say which services it has.
std::string findService(const std::string& text, bool isForced);

}  // namespace brimo
