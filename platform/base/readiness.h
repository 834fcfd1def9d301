// An event that poll(2) can wait for.
#pragma once

#include "platform/base/file_descriptor.h"

namespace platform {

/// A descriptor that is readable after set() until clear(), for poll(2), epoll(7) and the like.
class Readiness {
 public:
  /// Throws std::system_error if no descriptors are left.
  Readiness();

  int descriptor() const { return reading_.get(); }

  /// Makes the descriptor readable; clear() ends that. Both may be called on any thread, and repeatedly.
  void set();
  void clear();

 private:
  FileDescriptor reading_;
  FileDescriptor writing_;
};

}  // namespace platform
