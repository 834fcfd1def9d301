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

}  // namespace platform::dispatch
