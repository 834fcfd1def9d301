// Texts in JSON.
#pragma once

#include <boost/json/object.hpp>
#include <string_view>

namespace platform {

/// The text that a value is; empty when there is no value or it is no text. Lives as long as the value.
inline std::string_view textOf(const boost::json::value* value) {
  const auto* text = value ? value->if_string() : nullptr;
  return text ? std::string_view(*text) : std::string_view();
}

/// The text of a member.
inline std::string_view textMember(const boost::json::object& object, std::string_view key) {
  return textOf(object.if_contains(key));
}

}  // namespace platform
