// Power assertions, which keep the machine from falling asleep.
#pragma once

#include <cstdint>
#include <string>

#include "platform/base/result.h"

namespace platform::power {

/// Identifies an assertion of this process.
using AssertionID = std::uint32_t;

/// Creates an assertion, held until it is released or the process ends. Main queue only. `type` is one of IOKit's
/// assertion types (IOPMLib.h), which Linux ignores; `name` tells people who holds it. The number of a failure is an
/// IOReturn on macOS and an errno on Linux.
Result<AssertionID> createAssertion(const std::string& type, const std::string& name);

/// Releases an assertion. Fails like createAssertion(), for an unknown assertion too.
Result<void> releaseAssertion(AssertionID assertion);

}  // namespace platform::power
