#include "platform/process/process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <limits.h>
#include <linux/openat2.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "platform/process/linux/pidfd.h"
#include "platform/process/linux/proc_files.h"
#include "platform/process/linux/process_folder.h"

namespace platform {

namespace {

/// Opens a file with O_PATH if the kernel's cache of names leads there by itself (openat2(2)), as it does to a file
/// that runs.
FileDescriptor openCached(const std::string& path) {
  open_how how{.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC, .mode = 0, .resolve = RESOLVE_CACHED};
  return FileDescriptor(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
}

/// Whether the file that a process runs lies at a path. Nothing that a user serves is asked.
bool runsFileAt(std::int32_t pid, const std::string& path) {
  auto running = openImage(pid);
  auto named = openCached(path);
  struct stat one, other;
  return running && named && ProcessFolder(getpid()).isOnSafeMount(named.get()) && fstat(running->get(), &one) == 0 &&
         fstat(named.get(), &other) == 0 && one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

std::optional<std::string> executablePath(std::int32_t pid) {
  if (pid < 1) return std::nullopt;
  auto link = fmt::format("/proc/{}/exe", pid);
  std::array<char, PATH_MAX> buffer;
  auto length = readlink(link.c_str(), buffer.data(), buffer.size());
  if (length <= 0 || static_cast<std::size_t>(length) == buffer.size()) return std::nullopt;
  std::string path(buffer.data(), static_cast<std::size_t>(length));

  // The kernel marks the path of a file that is no longer there (proc_pid_exe(5)); a file may also be named so.
  constexpr std::string_view mark = " (deleted)";
  if (path.ends_with(mark) && !runsFileAt(pid, path)) path.resize(path.size() - mark.size());
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
