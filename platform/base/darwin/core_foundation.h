// Owners of CoreFoundation objects, and conversion of texts.
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

/// Owns an object returned by a function with "Create" or "Copy" in its name; null if there is none. Callers do not own
/// the results of other functions.
template <class Reference>
using CFOwner = std::unique_ptr<std::remove_pointer_t<Reference>, CFReleaser>;

/// A CFString of a text; null if the text is not UTF-8.
CFOwner<CFStringRef> makeString(std::string_view text);

/// The text of a CFString in UTF-8; empty for null. An unpaired surrogate, which has no UTF-8, becomes "?".
std::string textOf(CFStringRef string);

}  // namespace platform
