// Requirements as Security has them.
#pragma once

#include <Security/Security.h>

#include <string>

#include "platform/base/darwin/core_foundation.h"
#include "platform/code_signing/code_signing.h"

namespace platform::code_signing {

/// Has `create` make an object of Security's. Returns its status; `object` is owned from here on, null on failure.
template <class Reference, class Create>
Status make(CFOwner<Reference>& object, Create create) {
  Reference reference = nullptr;
  Status status = create(&reference);
  object.reset(reference);
  return status;
}

/// Reads a requirement; its status, `requirement` owned from here on.
Status parse(const std::string& text, CFOwner<SecRequirementRef>& requirement);

}  // namespace platform::code_signing
