#include "cli/words.h"

#include <optional>
#include <stdexcept>

namespace brimo {

std::vector<std::string> splitWords(std::string_view line) {
  std::vector<std::string> words;
  std::optional<std::string> word;  // present but empty after ''
  char quote = 0;
  for (std::size_t index = 0; index < line.size(); ++index) {
    char character = line[index];
    if (quote == 0 && (character == ' ' || character == '\t')) {
      if (word) words.push_back(*word);
      word.reset();
      continue;
    }
    if (quote == 0 && !word && character == '#') break;
    if (!word) word.emplace();
    if (character == quote) {
      quote = 0;
    } else if (quote == 0 && (character == '\'' || character == '"')) {
      quote = character;
    } else if (quote != '\'' && character == '\\' && index + 1 < line.size()) {
      *word += line[++index];
    } else {
      *word += character;
    }
  }
  if (quote != 0) throw std::invalid_argument(std::string("missing closing ") + quote);
  if (word) words.push_back(*word);
  return words;
}

}  // namespace brimo
