#include "platform/system/system_log.h"

#include <os/log.h>

namespace platform {

void systemLog(const std::string& line) {
  os_log(OS_LOG_DEFAULT, "%{public}s", line.c_str());  // which asks whether its type is enabled
}

}  // namespace platform
