// The common base of the queues on Linux.
#pragma once

#include <deque>
#include <functional>

#include "platform/dispatch/dispatch.h"

namespace platform::dispatch {

using Work = std::function<void()>;

class Queue::Implementation {
 public:
  virtual ~Implementation() = default;
  virtual void add(Work work) = 0;
};

/// Allocates what timers need besides memory and a thread, so that no timer fails later for lack of descriptors.
void prepareTimers();

}  // namespace platform::dispatch
