// Hexadecimal text of anybody: never more bytes than pairs, and what was read reads back the same.
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
