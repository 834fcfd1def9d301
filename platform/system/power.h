// Power assertions, which keep the machine from falling asleep.
#pragma once

#include <cstdint>
#include <string>

namespace platform::power {

/// Names an assertion of this process.
using AssertionID = std::uint32_t;

/// 0 is success; other values are the platform's own: an IOReturn on macOS, an errno on Linux.
using Status = std::int32_t;

/// Takes an assertion. `type` is one of IOKit's assertion types (IOPMLib.h), `name` says who holds it. On success
/// `assertion` is set, and the assertion is held until it is released or the process ends.
[[nodiscard]] Status createAssertion(const std::string& type, const std::string& name, AssertionID& assertion);

/// Gives an assertion back.
[[nodiscard]] Status releaseAssertion(AssertionID assertion);

}  // namespace platform::power
