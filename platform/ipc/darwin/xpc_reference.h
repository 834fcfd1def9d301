// Owners of XPC objects.
#pragma once

#include <xpc/xpc.h>

#include "platform/base/darwin/reference.h"

namespace platform::darwin {

struct XPCCounting {
  static void retain(xpc_object_t object) { xpc_retain(object); }
  static void release(xpc_object_t object) { xpc_release(object); }
};

using XPCObject = Reference<xpc_object_t, XPCCounting>;
using XPCConnection = Reference<xpc_connection_t, XPCCounting>;

}  // namespace platform::darwin
