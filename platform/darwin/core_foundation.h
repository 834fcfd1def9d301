// Owners of CoreFoundation objects; Security's and SystemConfiguration's are such too.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <string_view>

#include "platform/darwin/reference.h"

namespace platform::darwin {

struct CFCounting {
  static void retain(CFTypeRef object) { CFRetain(object); }
  static void release(CFTypeRef object) { CFRelease(object); }
};

template <class Object>
using CFReference = Reference<Object, CFCounting>;

/// A CoreFoundation string of UTF-8 text; empty when the text is not UTF-8.
inline CFReference<CFStringRef> makeCFString(std::string_view text) {
  return CFReference<CFStringRef>::adopt(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

}  // namespace platform::darwin
