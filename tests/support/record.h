// Records what threads do in tests.
#pragma once

#include <mutex>
#include <vector>

#include "tests/support/eventually.h"

/// Records events in order.
class Record {
 public:
  void add(int event) {
    std::lock_guard lock(mutex_);
    events_.push_back(event);
  }
  std::vector<int> events() {
    std::lock_guard lock(mutex_);
    return events_;
  }
  bool reaches(std::size_t count) {
    return eventually([&] { return events().size() >= count; });
  }

 private:
  std::mutex mutex_;
  std::vector<int> events_;
};
