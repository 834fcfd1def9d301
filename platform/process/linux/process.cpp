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

/// Opens a file with O_PATH, using only the kernel's cache of names (openat2(2)). The cache has the path of a running
/// file, and no file system is asked.
FileDescriptor openCached(const std::string& path) {
  open_how how{.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC, .mode = 0, .resolve = RESOLVE_CACHED};
  return FileDescriptor(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
}

/// Whether a path leads to the file that a process runs. Asks no file system that a user could serve.
bool runsFileAt(std::int32_t pid, const std::string& path) {
  auto running = openImage(pid);
  auto named = openCached(path);
  struct stat one, other;
  return running && ProcessFolder(getpid()).isOnSafeMount(named.get()) && fstat(running->get(), &one) == 0 &&
         fstat(named.get(), &other) == 0 && one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

std::optional<std::string> executablePath(std::int32_t pid) {
  auto link = fmt::format("/proc/{}/exe", pid);
  std::array<char, PATH_MAX> buffer;  // the kernel gives no longer path
  auto length = readlink(link.c_str(), buffer.data(), buffer.size());
  if (length < 0) return std::nullopt;
  std::string path(buffer.data(), static_cast<std::size_t>(length));

  // The kernel appends this mark to the path of a deleted file (proc_pid_exe(5)), but the name of an existing file may
  // end with it too.
  constexpr std::string_view mark = " (deleted)";
  if (path.ends_with(mark) && !runsFileAt(pid, path)) path.resize(path.size() - mark.size());
  return path;
}

std::optional<std::uint32_t> effectiveUserID(std::int32_t pid) {
  // Not the owner of /proc/PID: it is root for processes that are not dumpable (proc(5)).
  auto users = numbersOf(readProcessFile(pid, "status").value_or(""), "Uid:");  // real, effective, saved, file system
  return users.size() == 4 ? std::optional(users[1]) : std::nullopt;
}

std::optional<Process> Process::find(std::int32_t pid) {
  FileDescriptor handle(pidfd_open(pid, 0));
  if (!handle) return std::nullopt;
  return Process(pid, std::move(handle));
}

bool Process::hasEnded() const {
  return waitForEnd(handle_.get(), {});  // poll(2) ignores a negative descriptor
}

void Process::kill() const {
  if (handle_) pidfd_send_signal(handle_.get(), SIGKILL, nullptr, 0);
}

}  // namespace platform
