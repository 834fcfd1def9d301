#include "platform/system/system_log.h"

#include <os/log.h>

#include <string_view>

namespace platform {

// A line of the unified log holds 1,024 bytes of dynamic text, so longer lines are split.
void systemLog(const std::string& line) {
  constexpr std::size_t maximumPiece = 1'000;
  std::string_view rest = line;
  do {
    auto length = std::min(rest.size(), maximumPiece);
    // Never split inside a character: its bytes after the first begin with the bits 10.
    while (length > maximumPiece - 4 && length < rest.size() && (rest[length] & 0xC0) == 0x80) --length;
    os_log(OS_LOG_DEFAULT, "%{public}.*s", static_cast<int>(length), rest.data());
    rest.remove_prefix(length);
  } while (!rest.empty());
}

}  // namespace platform
