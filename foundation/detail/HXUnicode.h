// Characters of UTF-8 texts. A byte that is not UTF-8 counts as a character of its own, and is kept as it is.
#pragma once

#include <string>
#include <string_view>

namespace hx::detail {

/// Takes the first composed character, a code point with all combining marks that follow it, off a text that is not
/// empty. The result refers to the text's bytes.
std::string_view takeComposedCharacter(std::string_view& text);

/// Whether a composed character is a single white-space code point; line ends are.
bool isWhiteSpace(std::string_view character);

/// Without white space at either end. The result refers to the text's bytes.
std::string_view trimmed(std::string_view text);

/// With every code point replaced by its simple lower-case mapping.
std::string lowercase(std::string_view text);

}  // namespace hx::detail
