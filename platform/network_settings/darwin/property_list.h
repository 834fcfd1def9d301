// Conversion between JSON values and property lists. Values that cannot be converted exactly are refused, except texts
// with unpaired surrogates (core_foundation.h).
#pragma once

#include <boost/json/value.hpp>
#include <optional>

#include "platform/base/darwin/core_foundation.h"

namespace platform {

/// Converts a JSON value. Booleans become CFBoolean; integers and other numbers become 64-bit CFNumber. Null if the
/// value or one inside it cannot be converted: JSON null, an integer above INT64_MAX, a number that is not finite, or a
/// text that is not UTF-8.
CFOwner<CFTypeRef> propertyList(const boost::json::value& value);

/// Converts a property list. Absent if the object or one inside it cannot be converted: data, a date, a key that is not
/// a string, or a number of more than 64 bits.
std::optional<boost::json::value> jsonValue(CFTypeRef object);

}  // namespace platform
