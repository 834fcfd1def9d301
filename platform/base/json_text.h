// Texts in JSON values.
#pragma once

#include <boost/json/object.hpp>
#include <string_view>

namespace platform {

/// The text of a JSON string; empty for null pointers and values of other types. Valid as long as the value.
inline std::string_view textOf(const boost::json::value* value) {
  const auto* text = value ? value->if_string() : nullptr;
  return text ? std::string_view(*text) : std::string_view();
}

/// The text of an object's member; empty if the object has no such member or the member is not a string.
inline std::string_view textMember(const boost::json::object& object, std::string_view key) {
  return textOf(object.if_contains(key));
}

}  // namespace platform
