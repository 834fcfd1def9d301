// The parts of <IOKit/pwr_mgt/IOPMLib.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <mach/kern_return.h>

__BEGIN_DECLS

typedef kern_return_t IOReturn;
#define kIOReturnSuccess KERN_SUCCESS
#define kIOReturnBadArgument ((kern_return_t)0xe00002c2)

typedef uint32_t IOPMAssertionID;
typedef uint32_t IOPMAssertionLevel;
enum { kIOPMAssertionLevelOff = 0, kIOPMAssertionLevelOn = 255 };

IOReturn IOPMAssertionCreateWithName(CFStringRef type, IOPMAssertionLevel level, CFStringRef name, IOPMAssertionID* assertion)
    API_AVAILABLE(macos(10.6));
IOReturn IOPMAssertionRelease(IOPMAssertionID assertion) API_AVAILABLE(macos(10.5));

__END_DECLS
