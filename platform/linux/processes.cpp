#include "platform/processes.h"

#include <fmt/format.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string_view>

namespace platform {

std::optional<std::string> executablePath(std::int32_t pid) {
  if (pid < 1) return std::nullopt;
  auto link = fmt::format("/proc/{}/exe", pid);
  std::array<char, PATH_MAX> buffer;
  auto length = readlink(link.c_str(), buffer.data(), buffer.size());
  if (length <= 0 || static_cast<std::size_t>(length) == buffer.size()) return std::nullopt;
  std::string path(buffer.data(), static_cast<std::size_t>(length));

  // The kernel marks the path of a file that is no longer there (proc_pid_exe(5)); a file may also be named so.
  constexpr std::string_view mark = " (deleted)";
  struct stat running, named;
  if (path.ends_with(mark) && stat(link.c_str(), &running) == 0 &&
      (stat(path.c_str(), &named) != 0 || named.st_dev != running.st_dev || named.st_ino != running.st_ino)) {
    path.resize(path.size() - mark.size());
  }
  return path;
}

}  // namespace platform
