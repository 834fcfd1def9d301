// Lists network services and finds them by name.
#pragma once

#include <string>

#include "cli/answer.h"

namespace brimo {

/// All network services, one line each; exitNotFound if there are none. Throws platform::Failure.
Answer listServices();

/// Shows which proxies are set, where, and which programs use them.
Answer listProxies();

/// Returns the ID of a service. `text` can be, in order of precedence:
///
/// - "primary", for the service with the default route;
/// - an ID;
/// - the interface on which the service is active;
/// - the service's name.
///
/// Throws UsageError when several services match, and CommandFailure (exitNotFound) when none does. If `isForced` is
/// true, returns the text itself. If the system does not say which services it has, throws the system's Failure for
/// "primary"; for any other text, returns the text itself.
std::string findService(const std::string& text, bool isForced);

}  // namespace brimo
