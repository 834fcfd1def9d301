#include "platform/code_signing/linux/trusted_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <limits.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <array>
#include <list>

#include "platform/process/process.h"

namespace platform {

namespace {

constexpr int maximumLinks = 40;  // as the kernel's own path walk (path_resolution(7))

/// Fails unless only root can change what the descriptor names, which must be of the given type (S_IFREG or S_IFDIR).
Result<void> checkTrust(int descriptor, mode_t type) {
  struct stat status;
  struct statfs fileSystem;
  if (fstat(descriptor, &status) != 0 || fstatfs(descriptor, &fileSystem) != 0) return lastFailure();
  // A user's own file system server may claim any owner and mode.
  bool trusted = (status.st_mode & S_IFMT) == type && status.st_uid == 0 &&
                 (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 && fileSystem.f_type != FUSE_SUPER_MAGIC;
  if (!trusted) return failureOf(EPERM);
  return {};
}

/// Puts the components of a path before the rest of the way.
void prepend(std::list<std::string>& rest, std::string_view path) {
  std::list<std::string> components;
  while (!path.empty()) {
    auto length = std::min(path.find('/'), path.size());
    if (length > 0) components.emplace_back(path.substr(0, length));
    path.remove_prefix(std::min(length + 1, path.size()));
  }
  rest.splice(rest.begin(), components);
}

/// Walks a path through trusted folders only. The result is opened with O_PATH.
Result<FileDescriptor> walk(const std::string& path, mode_t type) {
  if (!path.starts_with('/') || path.size() >= PATH_MAX) return failureOf(EINVAL);
  auto root = [] { return FileDescriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)); };
  auto current = root();
  std::list<std::string> rest;
  prepend(rest, path);
  for (int links = 0; !rest.empty();) {
    if (auto trust = checkTrust(current.get(), S_IFDIR); !trust) return trust.error();
    FileDescriptor next(openat(current.get(), rest.front().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!next || fstat(next.get(), &status) != 0) return lastFailure();
    rest.pop_front();
    if (!S_ISLNK(status.st_mode)) {
      current = std::move(next);
      continue;
    }
    std::array<char, PATH_MAX> target;
    auto length = readlinkat(next.get(), "", target.data(), target.size());
    if (length <= 0 || ++links > maximumLinks) return failureOf(ELOOP);
    if (target[0] == '/') current = root();
    prepend(rest, {target.data(), static_cast<std::size_t>(length)});
  }
  if (auto trust = checkTrust(current.get(), type); !trust) return trust.error();
  return current;
}

}  // namespace

Result<FileDescriptor> openTrustedFile(const std::string& path) {
  auto found = walk(path, S_IFREG);
  if (!found) return found;
  FileDescriptor file(open(fmt::format("/proc/self/fd/{}", found->get()).c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return lastFailure();
  return file;
}

Result<FileDescriptor> openTrustedImage(std::int32_t pid) {
  auto path = executablePath(pid);
  if (!path) return failureOf(ENOENT);
  auto folder = walk(path->substr(0, std::max<std::size_t>(path->rfind('/'), 1)), S_IFDIR);
  if (!folder) return folder;
  FileDescriptor image(open(fmt::format("/proc/{}/exe", pid).c_str(), O_RDONLY | O_CLOEXEC));
  if (!image) return lastFailure();
  if (auto trust = checkTrust(image.get(), S_IFREG); !trust) return trust.error();
  return image;
}

}  // namespace platform
