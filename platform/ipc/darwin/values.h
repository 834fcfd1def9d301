// Typed dictionaries as XPC carries them.
#pragma once

#include "platform/ipc/darwin/xpc_reference.h"
#include "platform/ipc/service.h"

namespace platform::ipc {

/// The values of the types that messages have; others, and texts that are not UTF-8, are left out.
Dictionary dictionaryOf(xpc_object_t message);

/// Sets the values in an XPC dictionary. A text ends at its first zero byte.
void setValues(xpc_object_t message, const Dictionary& dictionary);

/// What XPC says of an object, for log lines.
std::string descriptionOf(xpc_object_t object);

/// The message itself is what attests its sender.
class Sender {
 public:
  explicit Sender(xpc_object_t message) : message_(darwin::XPCObject::share(message)) {}
  xpc_object_t message() const { return message_.get(); }

 private:
  darwin::XPCObject message_;
};

}  // namespace platform::ipc
