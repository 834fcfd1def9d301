#include "platform/system/system_log.h"

#include <syslog.h>

#include <algorithm>

namespace platform {

// The journal listens on the syslog socket too, so one call serves machines with either.
void systemLog(const std::string& line) {
  // A zero byte would end the line for syslog(3).
  std::string text = line;
  std::replace(text.begin(), text.end(), '\0', ' ');
  syslog(LOG_DAEMON | LOG_NOTICE, "%s", text.c_str());
}

}  // namespace platform
