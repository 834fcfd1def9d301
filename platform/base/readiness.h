// A descriptor that shows that something is ready.
#pragma once

#include "platform/base/file_descriptor.h"

namespace platform {

/// Its descriptor is readable from set() to clear(), for poll(2) and whatever is made of it.
class Readiness {
 public:
  /// Throws std::system_error when the system has no descriptors left.
  Readiness();

  int descriptor() const { return reading_.get(); }

  /// Both may be called by any thread, and again without effect.
  void set();
  void clear();

 private:
  FileDescriptor reading_;
  FileDescriptor writing_;
};

}  // namespace platform
