// Reads and writes that continue after signals and after partial transfers.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "platform/base/result.h"

namespace platform {

/// Writes all bytes. After a failure, some of them may have been written.
Result<void> writeAll(int descriptor, std::string_view bytes);

/// Reads until the buffer is full or the file ends. Returns the number of bytes read.
Result<std::size_t> readInto(int descriptor, std::span<char> buffer);

}  // namespace platform
