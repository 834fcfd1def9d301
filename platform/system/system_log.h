// The system log.
#pragma once

#include <string>

namespace platform {

/// Sends one line, unredacted, to the system log at its default level. Any thread. Never waits; a line that cannot be
/// sent is dropped silently (on Linux it is counted, and the next line that is sent reports the number).
void systemLog(const std::string& line);

}  // namespace platform
