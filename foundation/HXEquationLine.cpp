#include "foundation/HXEquationLine.h"

#include "foundation/detail/HXUnicode.h"

namespace {

constexpr auto npos = std::string_view::npos;

bool startsWithEscapable(std::string_view text) {
  return text.starts_with('\\') || text.starts_with('"');
}

/// The position of the "=" that ends the key; npos if there is none.
std::size_t endOfKey(std::string_view line) {
  enum { beforeKey, unquoted, quoted, afterQuote } state = beforeKey;
  std::string_view quote;
  for (auto rest = line; !rest.empty();) {
    auto position = line.size() - rest.size();
    auto character = hx::detail::takeComposedCharacter(rest);
    if (state == quoted) {
      if (character == quote) {
        state = afterQuote;
      } else if (quote == "\"" && character == "\\" && startsWithEscapable(rest)) {
        hx::detail::takeComposedCharacter(rest);
      }
    } else if (character == "=") {
      return position;
    } else if (state != unquoted && hx::detail::isWhiteSpace(character)) {
      continue;
    } else if ((character == "\"" && state != afterQuote) || (character == "'" && state == beforeKey)) {
      quote = character;
      state = quoted;
    } else {
      state = unquoted;
    }
  }
  return npos;
}

bool isEnclosed(std::string_view text, char quote) {
  return text.size() >= 2 && text.starts_with(quote) && text.ends_with(quote);
}

std::string cleaned(std::string_view field) {
  field = hx::detail::trimmed(field);
  if (isEnclosed(field, '\'')) return std::string(field.substr(1, field.size() - 2));
  if (!isEnclosed(field, '"')) return std::string(field);
  std::string text;
  for (field = field.substr(1, field.size() - 2); !field.empty(); field.remove_prefix(1)) {
    if (field.front() == '\\' && startsWithEscapable(field.substr(1))) field.remove_prefix(1);
    text += field.front();
  }
  return text;
}

}  // namespace

std::optional<hx::Equation> hx::splitEquationLine(std::string_view line) {
  auto end = endOfKey(line);
  if (end == npos || end + 1 == line.size()) return std::nullopt;
  return Equation{cleaned(line.substr(0, end)), cleaned(line.substr(end + 1))};
}
