// JSON values as property-list objects, and back, without loss.
#pragma once

#include <boost/json/value.hpp>
#include <optional>

#include "platform/base/darwin/core_foundation.h"

namespace platform {

/// Booleans become CFBoolean, integers and others CFNumber of 64 bits. Null when the value, or one in it, has no
/// counterpart: null, which property lists lack, and integers above INT64_MAX.
CFOwner<CFTypeRef> propertyList(const boost::json::value& value);

/// Absent when the object, or one in it, has no counterpart in JSON: data, dates, keys that are no strings, numbers of
/// more than 64 bits.
std::optional<boost::json::value> jsonValue(CFTypeRef object);

}  // namespace platform
