// Arbitrary hexadecimal text gives at most one byte for two characters, and the bytes survive a round trip.
#include <cstdlib>

#include "foundation/HXData.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  auto data = dataWithHEXString({reinterpret_cast<const char*>(bytes), size});
  if (data.size() > size / 2) std::abort();
  auto text = hexadecimalString(data);
  if (text.size() != 2 * data.size() || dataWithHEXString(text) != data) std::abort();
  if (dataWithHEXString(hexadecimalString({bytes, size})) != std::vector<std::uint8_t>(bytes, bytes + size))
    std::abort();
  return 0;
}
