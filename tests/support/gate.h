// Blocks threads in tests and records what they do.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "tests/support/eventually.h"

/// Blocks waiting threads until it is opened.
class Gate {
 public:
  void open() {
    std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isOpen_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = false;
};

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
