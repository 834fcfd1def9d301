// The system's own log.
#pragma once

#include <string>

namespace platform {

/// Sends one line, unredacted, to the system log at its default level. Any thread; failures are silent.
void systemLog(const std::string& line);

}  // namespace platform
