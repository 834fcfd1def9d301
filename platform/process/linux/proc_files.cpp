#include "platform/process/linux/proc_files.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <span>
#include <sstream>

#include "platform/base/file_descriptor.h"
#include "platform/base/file_io.h"

namespace platform {

namespace {

constexpr std::size_t maximumSize = 1'048'576, pieceSize = 16'384;

}  // namespace

std::optional<std::string> readProcessFile(std::int32_t pid, const char* name) {
  FileDescriptor file(open(fmt::format("/proc/{}/{}", pid, name).c_str(), O_RDONLY | O_CLOEXEC));
  std::string content;
  // Grows in pieces, because few files come near the limit.
  for (std::size_t filled = 0; filled < maximumSize;) {
    content.resize(filled + pieceSize);
    auto length = readInto(file.get(), std::span(content).subspan(filled));
    if (!length) return std::nullopt;
    filled += *length;
    content.resize(filled);
    if (*length < pieceSize) break;
  }
  return content;
}

std::vector<std::uint32_t> numbersOf(std::string_view status, std::string_view key) {
  std::vector<std::uint32_t> numbers;
  std::istringstream lines{std::string(status)};
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(key)) continue;
    std::istringstream words(line.substr(key.size()));
    for (std::uint32_t number; words >> number;) numbers.push_back(number);
  }
  return numbers;
}

}  // namespace platform
