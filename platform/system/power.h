// Power assertions, which keep the machine from falling asleep.
#pragma once

#include <cstdint>
#include <string>

#include "platform/base/result.h"

namespace platform::power {

/// Names an assertion of this process.
using AssertionID = std::uint32_t;

/// Takes an assertion, which is held until it is released or the process ends. `type` is one of IOKit's assertion types
/// (IOPMLib.h), `name` says who holds it. The number of a failure is an IOReturn on macOS, an errno on Linux.
Result<AssertionID> createAssertion(const std::string& type, const std::string& name);

/// Gives an assertion back; fails as createAssertion() does.
Result<void> releaseAssertion(AssertionID assertion);

}  // namespace platform::power
