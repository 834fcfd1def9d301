// A process that owns a socket.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct BRProcess {
  std::int32_t pid = 0;
  /// Path of the executable; absent when it is not UTF-8.
  std::optional<std::string> processPath;

  /// "PID 42 /usr/bin/thing"
  std::string description() const;
  bool operator==(const BRProcess&) const = default;
};
