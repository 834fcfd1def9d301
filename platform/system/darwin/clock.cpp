#include "platform/system/clock.h"

#include <mach/mach_time.h>

namespace platform {

double continuousSeconds() {
  static const auto timebase = [] {
    mach_timebase_info_data_t info;
    mach_timebase_info(&info);
    return info;
  }();
  auto nanoseconds = static_cast<double>(mach_continuous_time()) * timebase.numer / timebase.denom;
  return nanoseconds / 1e9;
}

}  // namespace platform
