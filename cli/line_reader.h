// Lines that a person types, or a script hands over.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brimo {

/// Reads standard input line by line: on a terminal with a prompt, with editing, a history and completion of the first
/// word by Tab; otherwise as it comes.
class LineReader {
 public:
  /// The words that a line may begin with.
  explicit LineReader(std::vector<std::string> firstWords);
  ~LineReader();

  /// The next line without its end; absent at the end of the input.
  std::optional<std::string> next();

 private:
  class Terminal;
  std::unique_ptr<Terminal> terminal_;  // null when there is none
};

}  // namespace brimo
