// JSON that is read back as it was written, real numbers to the last bit.
#pragma once

#include <boost/json/value.hpp>
#include <string_view>

namespace platform {

/// Deepest nesting that is read.
inline constexpr std::size_t exactJSONMaximumDepth = 1024;

/// Parses a text as json::parse() does, but for real numbers, which Boost 1.81 rounds to a neighbour of the nearest
/// double; a number too large for a double is an error. Throws boost::system::system_error.
boost::json::value parseExactJSON(std::string_view text);

}  // namespace platform
