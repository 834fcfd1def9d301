// Captures the log in tests.
#pragma once

#include <string>
#include <vector>

#include "foundation/HXLog.h"

/// Receives the log's lines during its lifetime, without the time: "[Module] message".
class CapturedLog {
 public:
  CapturedLog() {
    HXSetLogDestinations(0);
    HXSetLogLineHook([this](const std::string& line) { lines.push_back(line.substr(line.find('['))); });
  }
  ~CapturedLog() { HXSetLogLineHook(nullptr); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::vector<std::string> lines;
};
