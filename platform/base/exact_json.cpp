#include "platform/base/exact_json.h"

#include <fmt/format.h>
#include <locale.h>

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cmath>
#include <cstdlib>
#if __has_include(<xlocale.h>)
#include <xlocale.h>  // macOS: newlocale(), strtod_l()
#endif

namespace platform {

namespace json = boost::json;

namespace {

/// The double nearest to a number; infinity if the number is too large. A decimal comma in the process's locale has no
/// effect.
template <class Number = double>
Number nearestDouble(std::string_view text) {
  // std::from_chars() is several times as fast as strtod(3), but some standard libraries lack it for real numbers.
  if constexpr (requires(Number number) { std::from_chars(text.data(), text.data(), number); }) {
    Number number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc()) return number;
  }
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(std::string(text).c_str(), nullptr, cLocale);
}

/// Builds the value, as Boost's own handler does, except for on_double().
struct Handler {
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();
  using Text = json::string_view;
  using Error = boost::system::error_code;

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
  bool on_double(double, Text text, Error&) { return values.push_double(nearestDouble(text)), true; }
  bool on_bool(bool truth, Error&) { return values.push_bool(truth), true; }
  bool on_null(Error&) { return values.push_null(), true; }
  bool on_comment_part(Text, Error&) { return true; }
  bool on_comment(Text, Error&) { return true; }

  json::value_stack values;
};

class Writer {
 public:
  void write(const json::value& value) {
    if (const auto* array = value.if_array()) {
      writeList('[', *array, ']', [this](const json::value& element) { write(element); });
    } else if (const auto* object = value.if_object()) {
      writeList('{', *object, '}', [this](const auto& member) {
        writeScalar(member.key());
        text_ += ':';
        write(member.value());
      });
    } else if (const auto* number = value.if_double()) {
      const auto start = text_.size();
      fmt::format_to(std::back_inserter(text_), "{}", *number);
      // Without a point or an exponent, the number would be read back as an integer.
      if (text_.find_first_of(".e", start) == text_.npos) text_ += ".0";
    } else {
      writeScalar(&value);
    }
  }

  std::string take() { return std::move(text_); }

 private:
  template <class List, class WriteElement>
  void writeList(char open, const List& list, char close, WriteElement writeElement) {
    text_ += open;
    for (const auto& element : list) {
      if (&element != &*list.begin()) text_ += ',';
      writeElement(element);
    }
    text_ += close;
  }

  /// Writes a text or, given a pointer, a value.
  template <class Scalar>
  void writeScalar(Scalar scalar) {
    serializer_.reset(scalar);
    while (!serializer_.done()) {
      std::array<char, 4096> piece;
      text_ += std::string_view(serializer_.read(piece.data(), piece.size()));
    }
  }

  json::serializer serializer_;
  std::string text_;
};

}  // namespace

Result<json::value> parseExactJSON(std::string_view text, std::size_t maximumDepth) {
  json::parse_options options;
  options.max_depth = maximumDepth;
  json::basic_parser<Handler> parser(options);
  parser.handler().values.reset();
  boost::system::error_code error;
  // One call for the whole text, so that no number arrives in parts.
  auto length = parser.write_some(false, text.data(), text.size(), error);
  if (!error && length < text.size()) error = json::error::extra_data;
  if (error) return Failure(0, error.message());
  return parser.handler().values.release();
}

std::string serializeExactJSON(const json::value& value) {
  Writer writer;
  writer.write(value);
  return writer.take();
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
