// The sender of an XPC message.
#pragma once

#include "platform/ipc/darwin/xpc_reference.h"
#include "platform/ipc/service.h"

namespace platform::ipc {

/// Holds the message, because the message itself attests its sender.
class Sender {
 public:
  explicit Sender(xpc_object_t message) : message_(darwin::XPCObject::share(message)) {}
  xpc_object_t message() const { return message_.get(); }

 private:
  darwin::XPCObject message_;
};

}  // namespace platform::ipc
