// Lines of the form key=value, in which quotes protect an "=".
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hx {

/// The two sides of an equation, without surrounding white space and quotes.
struct Equation {
  std::string key;
  std::string value;
  bool operator==(const Equation&) const = default;
};

/// Splits a line at the first "=" that is not quoted; absent if there is no such "=" or if nothing follows it.
/// - Double quotes protect an "=" anywhere in the key: `a "=" b = c` has the key `a "=" b`. A quote that follows a
///   closing quote, directly or after white space, does not open a quotation.
/// - Apostrophes protect an "=" only if the key begins with one: `'a=b' = c` has the key `a=b`, but `a '=' b` is split
///   between the apostrophes.
/// - White space around a side is removed; then its first and last character, if both are the same kind of quote.
/// - In a side that was enclosed in double quotes, `\"` stands for `"` and `\\` for `\`; other backslashes stay.
/// - In the search for the "=", a character with combining marks is neither an "=" nor a quote.
std::optional<Equation> splitEquationLine(std::string_view line);

}  // namespace hx
