// Lines of the form key=value, with quotes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hx {

/// The two sides of an equation, without white space and quotes around them.
struct Equation {
  std::string key;
  std::string value;
  bool operator==(const Equation&) const = default;
};

/// Splits a line at its first "=" outside of double quotes, and outside of apostrophes around the key. Within double
/// quotes a backslash makes a backslash or double quote ordinary; on either side, quotes around the whole are taken
/// off, and then these backslashes. A character with combining marks is never "=" or a quote. Absent when there is no
/// such "=", or nothing at all follows it.
std::optional<Equation> splitEquationLine(std::string_view line);

}  // namespace hx
