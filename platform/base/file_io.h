// Reading and writing descriptors, however often a signal interrupts or the system stops half-way.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "platform/base/result.h"

namespace platform {

/// Writes all of the bytes.
Result<void> writeAll(int descriptor, std::string_view bytes);

/// Reads until the buffer is full or the file ends; returns the number of bytes read.
Result<std::size_t> readInto(int descriptor, std::span<char> buffer);

}  // namespace platform
