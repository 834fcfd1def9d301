// Characters of UTF-8 texts. A byte that is not part of well-formed UTF-8 counts as a character and is kept unchanged.
#pragma once

#include <string>
#include <string_view>

namespace hx::detail {

/// Removes the first composed character (a code point and the combining marks after it) from a text, which must not be
/// empty, and returns it. The result refers to the text's bytes.
std::string_view takeComposedCharacter(std::string_view& text);

/// Whether a composed character is a single white-space code point. Line ends are white space.
bool isWhiteSpace(std::string_view character);

/// The text without white space at either end. The result refers to the text's bytes.
std::string_view trimmed(std::string_view text);

/// The text with every code point replaced by its simple lower-case mapping.
std::string lowercase(std::string_view text);

}  // namespace hx::detail
