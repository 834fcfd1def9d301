// Fuzzes ancillary data: the parser terminates and stays within the bounds of the data.
#include <vector>

#include "platform/sockets/ancillary_data.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::vector<std::uint8_t> copy(bytes, bytes + size);  // exactly that size, so that the sanitizer sees overruns
  platform::hopLimitIn(copy);
  return 0;
}
