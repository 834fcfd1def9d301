#include "foundation/detail/HXUnicode.h"

#include <boost/locale/utf.hpp>
#include <boost/spirit/home/support/char_encoding/unicode/query.hpp>
#include <iterator>

namespace hx::detail {

namespace ucd = boost::spirit::ucd;

namespace {

using UTF8 = boost::locale::utf::utf_traits<char>;

struct CodePoint {
  char32_t value;  ///< U+FFFD for a byte that is not part of well-formed UTF-8
  std::string_view bytes;
};

CodePoint firstCodePoint(std::string_view text) {
  const char* position = text.data();
  auto value = UTF8::decode(position, text.data() + text.size());
  if (value == boost::locale::utf::illegal || value == boost::locale::utf::incomplete)
    return {U'\uFFFD', text.substr(0, 1)};
  return {value, text.substr(0, static_cast<std::size_t>(position - text.data()))};
}

}  // namespace

std::string_view takeComposedCharacter(std::string_view& text) {
  auto start = text;
  text.remove_prefix(firstCodePoint(text).bytes.size());
  while (!text.empty()) {
    auto next = firstCodePoint(text);
    // No code point below U+0300 combines.
    if (next.value < 0x300 || ucd::get_major_category(next.value) != ucd::properties::mark) break;
    text.remove_prefix(next.bytes.size());
  }
  return start.substr(0, start.size() - text.size());
}

bool isWhiteSpace(std::string_view character) {
  auto codePoint = firstCodePoint(character);
  return codePoint.bytes == character && ucd::is_white_space(codePoint.value);
}

std::string_view trimmed(std::string_view text) {
  std::size_t begin = text.size(), end = text.size();
  for (std::size_t index = 0; index < text.size();) {
    auto codePoint = firstCodePoint(text.substr(index));
    auto next = index + codePoint.bytes.size();
    if (!ucd::is_white_space(codePoint.value)) {
      if (begin == text.size()) begin = index;
      end = next;
    }
    index = next;
  }
  return text.substr(begin, end - begin);
}

std::string lowercase(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    auto codePoint = firstCodePoint(text);
    text.remove_prefix(codePoint.bytes.size());
    if (codePoint.value == U'\uFFFD') {
      result += codePoint.bytes;
    } else {
      UTF8::encode(ucd::to_lowercase(codePoint.value), std::back_inserter(result));
    }
  }
  return result;
}

}  // namespace hx::detail
