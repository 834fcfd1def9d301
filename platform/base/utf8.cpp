#include "platform/base/utf8.h"

#include <cstdint>

namespace platform {

bool isUTF8(std::string_view bytes) {
  auto byteIn = [&](std::size_t index, unsigned low, unsigned high) {
    auto value = index < bytes.size() ? static_cast<std::uint8_t>(bytes[index]) : 0u;
    return value >= low && value <= high;
  };
  for (std::size_t index = 0; index < bytes.size();) {
    auto lead = static_cast<std::uint8_t>(bytes[index]);
    std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (length > 1) {
      if (lead < 0xC2 || lead > 0xF4) return false;
      // The range of the second byte excludes overlong forms, surrogates and values above U+10FFFF.
      unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
      unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
      if (!byteIn(index + 1, low, high)) return false;
      for (std::size_t offset = 2; offset < length; ++offset) {
        if (!byteIn(index + offset, 0x80, 0xBF)) return false;
      }
    }
    index += length;
  }
  return true;
}

}  // namespace platform
