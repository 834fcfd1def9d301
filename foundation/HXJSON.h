// JSON texts (RFC 8259) to values and back.
#pragma once

#include <boost/json/value.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/HXData.h"

/// Arrays and objects may stand in each other this deep.
inline constexpr std::size_t HXJSONMaximumDepth = 512;

/// The object or array that the bytes hold; null when they are not such a JSON text. Parsed once: later calls on the
/// same data return the same value. Of members of one name the last counts.
std::shared_ptr<const boost::json::value> HX_JSONObject(const HXData& data);
/// The same for a text, which is parsed by every call.
std::shared_ptr<const boost::json::value> HX_JSONObject(std::string_view text);

/// The object or array as the caller's own, to be changed at will; parsed by every call. Absent where HX_JSONObject()
/// gives null.
std::optional<boost::json::value> HX_JSONObjectWithMutableContainers(const HXData& data);
std::optional<boost::json::value> HX_JSONObjectWithMutableContainers(std::string_view text);

/// The compact UTF-8 text of an object or array. Absent, with a line in the log, when it is neither, or holds a number
/// that is not finite or a text that is not UTF-8.
std::optional<std::string> HX_JSONData(const boost::json::value& value);
/// The same.
std::optional<std::string> HX_JSONString(const boost::json::value& value);
