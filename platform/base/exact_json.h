// JSON that is read back as it was written, real numbers to the last bit.
#pragma once

#include <boost/json/value.hpp>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace platform {

/// Parses a text as json::parse() does, but for real numbers, which Boost 1.81 rounds to a neighbour of the nearest
/// double. The process's locale plays no part. Arrays and objects may stand in each other `maximumDepth` deep.
Result<boost::json::value> parseExactJSON(std::string_view text, std::size_t maximumDepth);

/// The text of a value as json::serialize() gives it, but real numbers as people write them, and as short as they can
/// be and still be read back as the same: 1.5, 1.0, 1e+300. Its numbers must be finite.
std::string serializeExactJSON(const boost::json::value& value);

/// Whether JSON has a text for all numbers that a value holds: the infinite, which too large ones are read as, have
/// none.
bool isFiniteJSON(const boost::json::value& value);

}  // namespace platform
