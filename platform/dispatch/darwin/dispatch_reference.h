// Owners of libdispatch objects.
#pragma once

#include <dispatch/dispatch.h>

#include "platform/base/darwin/reference.h"

namespace platform::darwin {

struct DispatchCounting {
  static void retain(dispatch_object_t object) { dispatch_retain(object); }
  static void release(dispatch_object_t object) { dispatch_release(object); }
};

using DispatchQueue = Reference<dispatch_queue_t, DispatchCounting>;
using DispatchSource = Reference<dispatch_source_t, DispatchCounting>;
using DispatchSemaphore = Reference<dispatch_semaphore_t, DispatchCounting>;

}  // namespace platform::darwin
