#include "cli/line_reader.h"

#include <histedit.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string_view>

namespace brimo {

namespace {

constexpr int historySize = 500;

char* prompt(EditLine*) {
  static char text[] = "brimo> ";
  return text;
}

}  // namespace

class LineReader::Terminal {
 public:
  explicit Terminal(std::vector<std::string> firstWords)
      : firstWords_(std::move(firstWords)), editor_(el_init("Brimo", stdin, stdout, stderr)), history_(history_init()) {
    HistEvent event;
    history(history_, &event, H_SETSIZE, historySize);
    history(history_, &event, H_SETUNIQUE, 1);
    el_set(editor_, EL_CLIENTDATA, this);
    el_set(editor_, EL_PROMPT, prompt);
    el_set(editor_, EL_EDITOR, "emacs");
    el_set(editor_, EL_SIGNAL, 1);
    el_set(editor_, EL_HIST, history, history_);
    el_set(editor_, EL_ADDFN, "complete", "Complete the command", complete);
    el_set(editor_, EL_BIND, "^I", "complete", nullptr);
  }
  ~Terminal() {
    el_end(editor_);
    history_end(history_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  std::optional<std::string> next() {
    int length = 0;
    const char* text = el_gets(editor_, &length);
    if (!text || length <= 0) return std::nullopt;
    std::string line(text, static_cast<std::size_t>(length));
    if (line.back() == '\n') line.pop_back();
    HistEvent event;
    if (!line.empty()) history(history_, &event, H_ENTER, line.c_str());
    return line;
  }

 private:
  /// Inserts the common prefix of all matching words, or lists the words if that adds nothing.
  static unsigned char complete(EditLine* editor, int) {
    Terminal* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    const auto* line = el_line(editor);
    std::string_view typed(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
    std::vector<std::string_view> fitting;
    for (const auto& word : self->firstWords_) {
      if (word.starts_with(typed)) fitting.push_back(word);
    }
    if (fitting.empty()) return CC_ERROR;
    auto common = fitting.front();
    for (auto word : fitting) {
      auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
      common = common.substr(0, static_cast<std::size_t>(end - common.begin()));
    }
    auto rest = std::string(common.substr(typed.size())) + (fitting.size() == 1 ? " " : "");
    if (!rest.empty()) return el_insertstr(editor, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    std::cout << '\n';
    for (auto word : fitting) std::cout << word << "  ";
    std::cout << std::endl;
    return CC_REDISPLAY;
  }

  std::vector<std::string> firstWords_;
  EditLine* editor_;
  History* history_;
};

LineReader::LineReader(std::vector<std::string> firstWords) {
  if (isatty(STDIN_FILENO) == 1) terminal_ = std::make_unique<Terminal>(std::move(firstWords));
}

LineReader::~LineReader() = default;

std::optional<std::string> LineReader::next() {
  if (terminal_) return terminal_->next();
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  return line;
}

}  // namespace brimo
