#include "platform/process/named_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace platform {

namespace {

Result<FileDescriptor> openNamed(const std::string& path, int flags) {
  open_how how{.flags = static_cast<unsigned>(flags | O_CLOEXEC), .mode = 0, .resolve = RESOLVE_NO_MAGICLINKS};
  FileDescriptor file(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
  if (!file) return lastFailure();
  return file;
}

}  // namespace

Result<FileDescriptor> openForAppending(const std::string& path) {
  return openNamed(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
}

std::string resolvedPath(const std::string& path) {
  if (!path.starts_with('/')) return {};
  const std::filesystem::path text(path.substr(0, path.find_last_not_of('/') + 1));
  auto file = openNamed(text.empty() ? "/" : text.string(), O_PATH);
  std::error_code failure;
  if (file) return std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", file->get()), failure).string();
  if (file.error().number != ENOENT) return {};
  auto folder = resolvedPath(text.parent_path().string());
  return folder.empty() ? "" : (std::filesystem::path(folder) / text.filename()).lexically_normal().string();
}

}  // namespace platform
