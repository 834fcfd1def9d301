// Facts about processes, from libproc.
#include "platform/process/process.h"

#include <libproc.h>
#include <signal.h>

#include <array>
#include <cerrno>

namespace platform {

std::optional<std::string> executablePath(std::int32_t pid) {
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> buffer{};
  const int length = proc_pidpath(pid, buffer.data(), buffer.size());
  if (length < 1) return std::nullopt;
  return std::string(buffer.data(), static_cast<std::size_t>(length));
}

std::optional<std::uint32_t> effectiveUserID(std::int32_t pid) {
  proc_bsdinfo info{};
  if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info) != sizeof info) return std::nullopt;
  return info.pbi_uid;
}

// PIDs below 1 denote groups of processes (kill(2)).
std::optional<Process> Process::find(std::int32_t pid) {
  if (pid < 1 || (::kill(pid, 0) != 0 && errno != EPERM)) return std::nullopt;
  return Process(pid, {});
}

bool Process::hasEnded() const {
  return false;  // cannot be known without a handle
}

void Process::kill() const {
  if (pid_ > 0) ::kill(pid_, SIGKILL);
}

}  // namespace platform
