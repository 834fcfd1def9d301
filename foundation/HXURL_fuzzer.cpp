// URLs of anybody: the kinds contain each other.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "foundation/HXURL.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(bytes), size);
  if (isValidHTTPURL(text) && !isValidURL(text)) std::abort();
  if (isValidURL(text) && !isURL(text)) std::abort();
  // No URL holds a blank, a control character or a byte above ASCII.
  for (auto byte : std::span(bytes, size)) {
    if ((byte <= ' ' || byte >= 0x7F) && isValidURL(text)) std::abort();
  }
  return 0;
}
