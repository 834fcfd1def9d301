// Requirements as objects of Security.framework.
#pragma once

#include <Security/Security.h>

#include <string>

#include "platform/base/darwin/core_foundation.h"
#include "platform/base/result.h"
#include "platform/code_signing/code_signing.h"

namespace platform::code_signing {

/// The result of a check by Security.framework.
inline Result<void> resultOf(Status status, const std::string& about) {
  if (status != success) return Failure(status, about + ": Security status " + std::to_string(status));
  return {};
}

/// Makes an object of Security.framework through `create`. The number of a failure is a Status.
template <class Reference, class Create>
Result<CFOwner<Reference>> make(Create create) {
  Reference reference = nullptr;
  Status status = create(&reference);
  CFOwner<Reference> object(reference);
  if (status != success) return Failure(status, "Security status " + std::to_string(status));
  return object;
}

/// Parses a requirement. The number of a failure is a Status.
Result<CFOwner<SecRequirementRef>> parse(const std::string& text);

}  // namespace platform::code_signing
