// Replies that several JSON commands share.
#pragma once

#include <boost/json/object.hpp>
#include <string_view>

inline boost::json::object BRHSuccess() {
  return {{"result", "success"}};
}

inline boost::json::object BRHError(std::string_view text) {
  return {{"error", text}};
}
