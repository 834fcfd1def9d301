#include "platform/process/linux/proc_files.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <sstream>

#include "platform/base/file_descriptor.h"
#include "platform/base/file_io.h"

namespace platform {

namespace {

constexpr std::size_t maximumSize = 1'048'576;

}  // namespace

std::optional<std::string> readProcessFile(std::int32_t pid, const char* name) {
  FileDescriptor file(open(fmt::format("/proc/{}/{}", pid, name).c_str(), O_RDONLY | O_CLOEXEC));
  std::string content(maximumSize, '\0');
  auto length = readInto(file.get(), content);
  if (!length) return std::nullopt;
  content.resize(*length);
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
