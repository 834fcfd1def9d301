// What the queues of the Linux platform have in common.
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

/// Makes what timers need besides memory and a thread, so that none fails for want of descriptors later.
void prepareTimers();

}  // namespace platform::dispatch
