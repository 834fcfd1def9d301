// JSON texts (RFC 8259) to values and back.
#pragma once

#include <boost/json/value.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/HXData.h"

/// Maximum nesting depth of arrays and objects.
inline constexpr std::size_t HXJSONMaximumDepth = 512;

/// Parses an object or array; null if the bytes are not such a JSON text. The data keeps the value, so later calls
/// return the same one. If a member name occurs more than once, the last member counts.
std::shared_ptr<const boost::json::value> HX_JSONObject(const HXData& data);
/// The same for a text. Every call parses it.
std::shared_ptr<const boost::json::value> HX_JSONObject(std::string_view text);

/// The same, but the caller owns the value and may change it. Every call parses. Absent if HX_JSONObject() returns
/// null.
std::optional<boost::json::value> HX_JSONObjectWithMutableContainers(const HXData& data);
std::optional<boost::json::value> HX_JSONObjectWithMutableContainers(std::string_view text);

/// The compact UTF-8 text of an object or array. Absent, with a line in the log, if the value is neither, or contains a
/// number that is not finite or a text that is not UTF-8.
std::optional<std::string> HX_JSONData(const boost::json::value& value);
/// Another name for HX_JSONData().
std::optional<std::string> HX_JSONString(const boost::json::value& value);
