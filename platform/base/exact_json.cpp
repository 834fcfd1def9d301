#include "platform/base/exact_json.h"

#include <algorithm>
#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <cmath>
#include <cstdlib>
#include <string>

namespace platform {

namespace json = boost::json;

namespace {

/// Puts together what the parser finds; the parser's own choice but for on_double().
struct Handler {
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();
  using Text = json::string_view;
  using Error = json::error_code;

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_object_begin(Error&) { return true; }
  bool on_object_end(std::size_t size, Error&) { return values.push_object(size), true; }
  bool on_array_begin(Error&) { return true; }
  bool on_array_end(std::size_t size, Error&) { return values.push_array(size), true; }
  bool on_key_part(Text part, std::size_t, Error&) { return values.push_chars(part), true; }
  bool on_key(Text part, std::size_t, Error&) { return values.push_key(part), true; }
  bool on_string_part(Text part, std::size_t, Error&) { return values.push_chars(part), true; }
  bool on_string(Text part, std::size_t, Error&) { return values.push_string(part), true; }
  bool on_number_part(Text, Error&) { return true; }
  bool on_int64(std::int64_t number, Text, Error&) { return values.push_int64(number), true; }
  bool on_uint64(std::uint64_t number, Text, Error&) { return values.push_uint64(number), true; }
  bool on_double(double, Text text, Error&) {
    return values.push_double(std::strtod(std::string(text).c_str(), nullptr)), true;
  }
  bool on_bool(bool truth, Error&) { return values.push_bool(truth), true; }
  bool on_null(Error&) { return values.push_null(), true; }
  bool on_comment_part(Text, Error&) { return true; }
  bool on_comment(Text, Error&) { return true; }

  json::value_stack values;
};

}  // namespace

Result<json::value> parseExactJSON(std::string_view text, std::size_t maximumDepth) {
  json::parse_options options;
  options.max_depth = maximumDepth;
  json::basic_parser<Handler> parser(options);
  parser.handler().values.reset();
  json::error_code error;
  // The whole text at once, so that every number comes in one piece.
  auto length = parser.write_some(false, text.data(), text.size(), error);
  if (!error && length < text.size()) error = json::error::extra_data;
  if (error) return Failure(0, error.message());
  return parser.handler().values.release();
}

bool isFiniteJSON(const json::value& value) {
  if (const auto* number = value.if_double()) return std::isfinite(*number);
  if (const auto* array = value.if_array()) return std::all_of(array->begin(), array->end(), isFiniteJSON);
  if (const auto* object = value.if_object()) {
    return std::all_of(object->begin(), object->end(), [](const auto& member) { return isFiniteJSON(member.value()); });
  }
  return true;
}

}  // namespace platform
