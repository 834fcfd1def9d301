// Reads the lines that a person types or a script sends.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brimo {

/// Reads standard input line by line. On a terminal it offers a prompt, editing, a history and Tab completion of the
/// first word.
class LineReader {
 public:
  explicit LineReader(std::vector<std::string> firstWords);
  ~LineReader();

  /// The next line without its line feed; absent at the end of the input.
  std::optional<std::string> next();

 private:
  class Terminal;
  std::unique_ptr<Terminal> terminal_;  // null when standard input is not a terminal
};

}  // namespace brimo
