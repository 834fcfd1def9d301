// Typed dictionaries as XPC carries them.
#pragma once

#include <string>

#include "platform/ipc/darwin/xpc_reference.h"
#include "platform/ipc/dictionary.h"

namespace platform::ipc {

/// The values of the types that messages have; others, and texts that are not UTF-8, are left out.
Dictionary dictionaryOf(xpc_object_t message);

/// Sets the values in an XPC dictionary. A text ends at its first zero byte.
void setValues(xpc_object_t message, const Dictionary& dictionary);

/// What XPC says of an object, for log lines.
std::string descriptionOf(xpc_object_t object);

}  // namespace platform::ipc
