// JSON texts (RFC 8259) to values and back.
#pragma once

#include <boost/json/value.hpp>
#include <memory>
#include <optional>
#include <string>

#include "foundation/HXData.h"

/// Arrays and objects may stand in each other this deep.
inline constexpr std::size_t HXJSONMaximumDepth = 512;

/// The object or array that the bytes hold; null when they are not such a JSON text. Parsed once: later calls on the
/// same data return the same value. Of members of one name the last counts.
std::shared_ptr<const boost::json::value> HX_JSONObject(const HXData& data);

/// The compact UTF-8 text of an object or array. Absent, with a line in the log, when it is neither, or holds a number
/// that is not finite or a text that is not UTF-8.
std::optional<std::string> HX_JSONData(const boost::json::value& value);
