// Splits a line into words like a shell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimo {

/// Splits a line at blanks.
///
/// - '…' takes everything literally.
/// - In "…" and outside quotes, a backslash takes the next character literally.
/// - A # at the start of a word begins a comment.
///
/// Throws std::invalid_argument, with a sentence for people, when a closing quote is missing.
std::vector<std::string> splitWords(std::string_view line);

}  // namespace brimo
