// Power assertions by IOKit.
#include "platform/system/power.h"

#include <IOKit/pwr_mgt/IOPMLib.h>

#include "platform/base/darwin/core_foundation.h"

namespace platform::power {

static_assert(sizeof(AssertionID) == sizeof(IOPMAssertionID) && sizeof(Status) == sizeof(IOReturn));

Status createAssertion(const std::string& type, const std::string& name, AssertionID& assertion) {
  const auto typeText = makeString(type), nameText = makeString(name);
  if (!typeText || !nameText) return kIOReturnBadArgument;
  return IOPMAssertionCreateWithName(typeText.get(), kIOPMAssertionLevelOn, nameText.get(), &assertion);
}

Status releaseAssertion(AssertionID assertion) {
  return IOPMAssertionRelease(assertion);
}

}  // namespace platform::power
