#include "platform/system_log.h"

#include <os/log.h>

namespace platform {

void systemLog(const std::string& line) {
  if (os_log_type_enabled(OS_LOG_DEFAULT, OS_LOG_TYPE_DEFAULT)) os_log(OS_LOG_DEFAULT, "%{public}s", line.c_str());
}

}  // namespace platform
