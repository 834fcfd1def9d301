#include "platform/base/file_io.h"

#include <unistd.h>

namespace platform {

Result<void> writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    auto length = write(descriptor, bytes.data(), bytes.size());
    if (length < 0) {
      if (errno == EINTR) continue;
      return lastFailure();
    }
    bytes.remove_prefix(static_cast<std::size_t>(length));
  }
  return {};
}

Result<std::size_t> readInto(int descriptor, std::span<char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    auto length = read(descriptor, buffer.data() + filled, buffer.size() - filled);
    if (length < 0) {
      if (errno == EINTR) continue;
      return lastFailure();
    }
    if (length == 0) break;
    filled += static_cast<std::size_t>(length);
  }
  return filled;
}

}  // namespace platform
