#include "platform/system_log.h"

#include <syslog.h>

namespace platform {

// The journal listens on the syslog socket too, so one call serves machines with either.
void systemLog(const std::string& line) {
  syslog(LOG_DAEMON | LOG_NOTICE, "%s", line.c_str());
}

}  // namespace platform
