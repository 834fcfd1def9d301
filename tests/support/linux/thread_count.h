// Counts threads in tests.
#pragma once

#include <cstddef>
#include <filesystem>

/// The number of threads of this process.
inline std::ptrdiff_t threadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}
