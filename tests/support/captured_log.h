// The log of tests.
#pragma once

#include <string>
#include <vector>

#include "foundation/HXLog.h"

/// Has the log's lines for itself while it lives: "[Module] message", without the time.
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
