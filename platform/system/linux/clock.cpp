#include "platform/system/clock.h"

#include <ctime>

namespace platform {

double continuousSeconds() {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace platform
