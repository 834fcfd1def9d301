#include "helper/probes/BRProcess.h"

#include <fmt/format.h>

std::string BRProcess::description() const {
  return fmt::format("PID {} {}", pid, processPath.value_or("(null)"));
}
