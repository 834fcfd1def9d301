// JSON whose real numbers survive writing and reading unchanged, to the last bit.
#pragma once

#include <boost/json/value.hpp>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace platform {

/// Parses a text like json::parse(), except that real numbers become the nearest double, which Boost 1.81 sometimes
/// misses by one bit. The process's locale has no effect. Arrays and objects may be nested `maximumDepth` deep.
Result<boost::json::value> parseExactJSON(std::string_view text, std::size_t maximumDepth);

/// Writes a value like json::serialize(), except that real numbers are as short as they can be without changing when
/// read back, and in the usual notation: 1.5, 1.0, 1e+300. All numbers must be finite.
std::string serializeExactJSON(const boost::json::value& value);

/// Whether all numbers in a value are finite. JSON has no text for infinity, but the parser returns infinity for a
/// number that is too large.
bool isFiniteJSON(const boost::json::value& value);

}  // namespace platform
