// Words of a line, as a shell has them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimo {

/// Splits a line at blanks. '…' keeps everything as it is; in "…", and outside, a backslash keeps the next character; a
/// word that begins with # begins a comment. Throws std::invalid_argument, with a sentence, when a quotation does not
/// end.
std::vector<std::string> splitWords(std::string_view line);

}  // namespace brimo
