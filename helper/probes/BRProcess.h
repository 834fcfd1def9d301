// A process found by one of the probes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct BRProcess {
  std::int32_t pid = 0;
  /// Executable; absent when its path is not UTF-8.
  std::optional<std::string> processPath;

  /// "PID 42 /usr/bin/thing"
  std::string description() const;
  bool operator==(const BRProcess&) const = default;
};
