// Conversion between typed dictionaries and XPC dictionaries.
#pragma once

#include <string>

#include "platform/ipc/darwin/xpc_reference.h"
#include "platform/ipc/dictionary.h"

namespace platform::ipc {

/// The values of an XPC dictionary. Values of types that messages do not have, and texts that are not UTF-8, are left
/// out.
Dictionary dictionaryOf(xpc_object_t message);

/// Sets values in an XPC dictionary. A text ends at its first zero byte.
void setValues(xpc_object_t message, const Dictionary& dictionary);

/// XPC's description of an object, for log lines.
std::string descriptionOf(xpc_object_t object);

}  // namespace platform::ipc
