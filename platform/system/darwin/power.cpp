// Power assertions by IOKit.
#include "platform/system/power.h"

#include <IOKit/pwr_mgt/IOPMLib.h>

#include "platform/base/darwin/core_foundation.h"

namespace platform::power {

static_assert(sizeof(AssertionID) == sizeof(IOPMAssertionID) && sizeof(Failure::number) == sizeof(IOReturn));

namespace {

Failure failureWith(IOReturn status) {
  return {status, "IOReturn " + std::to_string(status)};
}

}  // namespace

Result<AssertionID> createAssertion(const std::string& type, const std::string& name) {
  const auto typeText = makeString(type), nameText = makeString(name);
  if (!typeText || !nameText) return failureWith(kIOReturnBadArgument);
  AssertionID assertion = 0;
  auto status = IOPMAssertionCreateWithName(typeText.get(), kIOPMAssertionLevelOn, nameText.get(), &assertion);
  if (status != kIOReturnSuccess) return failureWith(status);
  return assertion;
}

Result<void> releaseAssertion(AssertionID assertion) {
  if (auto status = IOPMAssertionRelease(assertion); status != kIOReturnSuccess) return failureWith(status);
  return {};
}

}  // namespace platform::power
