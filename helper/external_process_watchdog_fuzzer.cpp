// Fuzzes the content of the watchdog file, which any user of the machine can write.
#include <cstdlib>

#include "helper/external_process_watchdog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  auto processes = BRHParseWatchedProcesses({reinterpret_cast<const char*>(bytes), size});
  for (const auto& process : processes.value_or(std::vector<BRHWatchedProcess>())) {
    if (process.pid < 2 || process.path.empty()) std::abort();
  }
  return 0;
}
