// Objects of CoreFoundation: owned, and texts from and to them.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace platform {

struct CFReleaser {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// Owns an object that came from a function with "Create" or "Copy" in its name; null when there is none. Objects from
/// other functions are not owned by their caller.
template <class Reference>
using CFOwner = std::unique_ptr<std::remove_pointer_t<Reference>, CFReleaser>;

/// Null when the text is not UTF-8.
CFOwner<CFStringRef> makeString(std::string_view text);

/// The text in UTF-8; empty for null. What has no UTF-8 (half of a surrogate pair) becomes "?".
std::string textOf(CFStringRef string);

}  // namespace platform
