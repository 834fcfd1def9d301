// Ancillary data of any form: the walk ends, and stays within it.
#include <vector>

#include "platform/sockets/ancillary_data.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::vector<std::uint8_t> copy(bytes, bytes + size);  // of exactly that size, for the sanitizer
  platform::hopLimitIn(copy);
  return 0;
}
