#include "platform/process/process.h"

#include <fmt/format.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "platform/process/linux/pidfd.h"
#include "platform/process/linux/proc_files.h"

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

std::optional<std::uint32_t> effectiveUserID(std::int32_t pid) {
  // The owner of the folder is the effective user, but root's for a process that may not be dumped (proc(5)).
  auto users = numbersOf(readProcessFile(pid, "status").value_or(""), "Uid:");  // real, effective, saved, of files
  return users.size() == 4 ? std::optional(users[1]) : std::nullopt;
}

std::optional<Process> Process::find(std::int32_t pid) {
  FileDescriptor handle(pidfd_open(pid, 0));
  if (!handle) return std::nullopt;
  return Process(pid, std::move(handle));
}

bool Process::hasEnded() const {
  return handle_ && waitForEnd(handle_.get(), {});
}

void Process::kill() const {
  if (handle_) pidfd_send_signal(handle_.get(), SIGKILL, nullptr, 0);
}

}  // namespace platform
