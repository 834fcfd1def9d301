#include "platform/code_signing/linux/trusted_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <limits.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <array>
#include <list>

#include "platform/process/linux/process_folder.h"
#include "platform/process/process.h"

namespace platform {

namespace {

constexpr int maximumLinks = 40;  // the limit of the kernel's own path walk (path_resolution(7))

/// Why a file or folder is not trusted: it has another type, or users other than root may be able to change it. Empty
/// if it is trusted.
std::string distrust(const struct stat& status, const struct statfs& fileSystem, mode_t type) {
  if ((status.st_mode & S_IFMT) != type) return type == S_IFDIR ? "is not a folder" : "is not a regular file";
  if (status.st_uid != 0) return fmt::format("may be changed by its owner, user {}", status.st_uid);
  if (status.st_mode & S_IWGRP) return fmt::format("may be changed by the group {}", status.st_gid);
  if (status.st_mode & S_IWOTH) return "may be changed by everybody";
  // A user's file system server may report any owner and mode.
  if (fileSystem.f_type == FUSE_SUPER_MAGIC) return "lies on a file system that a user serves (FUSE)";
  return {};
}

/// Fails unless only root can change the open file, which must have the given type (S_IFREG or S_IFDIR).
Result<void> checkTrust(int descriptor, mode_t type, const std::string& path) {
  struct stat status;
  struct statfs fileSystem;
  if (fstat(descriptor, &status) != 0 || fstatfs(descriptor, &fileSystem) != 0) return lastFailure(path);
  if (auto reason = distrust(status, fileSystem, type); !reason.empty()) return Failure(EPERM, path + " " + reason);
  return {};
}

/// Inserts the components of a path before the remaining ones.
void prepend(std::list<std::string>& rest, std::string_view path) {
  std::list<std::string> components;
  while (!path.empty()) {
    auto length = std::min(path.find('/'), path.size());
    if (length > 0) components.emplace_back(path.substr(0, length));
    path.remove_prefix(std::min(length + 1, path.size()));
  }
  rest.splice(rest.begin(), components);
}

/// Walks a path through trusted folders only. The result is open with O_PATH.
Result<FileDescriptor> walk(const std::string& path, mode_t type) {
  if (!path.starts_with('/') || path.size() >= PATH_MAX) return failureOf(EINVAL, path);
  auto root = [] { return FileDescriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)); };
  auto current = root();
  std::list<std::string> rest;
  prepend(rest, path);
  std::string walked;
  for (int links = 0; !rest.empty();) {
    if (auto trust = checkTrust(current.get(), S_IFDIR, walked.empty() ? "/" : walked); !trust) return trust.error();
    FileDescriptor next(openat(current.get(), rest.front().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!next || fstat(next.get(), &status) != 0) return lastFailure(walked + "/" + rest.front());
    auto name = std::move(rest.front());
    rest.pop_front();
    if (!S_ISLNK(status.st_mode)) {
      walked += "/" + name;
      current = std::move(next);
      continue;
    }
    std::array<char, PATH_MAX> target;
    auto length = readlinkat(next.get(), "", target.data(), target.size());
    if (length <= 0 || ++links > maximumLinks) return failureOf(ELOOP, path);
    if (target[0] == '/') {
      current = root();
      walked.clear();
    }
    prepend(rest, {target.data(), static_cast<std::size_t>(length)});
  }
  if (auto trust = checkTrust(current.get(), type, walked); !trust) return trust.error();
  return current;
}

/// Opens for reading a file that is open with O_PATH.
Result<FileDescriptor> openAgain(int descriptor) {
  FileDescriptor file(open(fmt::format("/proc/self/fd/{}", descriptor).c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return lastFailure();
  return file;
}

}  // namespace

Result<FileDescriptor> openTrustedFile(const std::string& path) {
  auto found = walk(path, S_IFREG);
  if (!found) return found;
  return openAgain(found->get());
}

Result<FileDescriptor> openTrustedImage(std::int32_t pid) {
  // The path is walked only after it is certain that root made the mount of the image, because a file system that a
  // user mounted might never answer.
  auto image = openImage(pid);
  if (!image) {
    if (image.error().number == EPERM) return Failure(EPERM, "it runs from a mount that root did not make");
    return image;
  }
  auto path = executablePath(pid);
  if (!path) return failureOf(ENOENT, "the executable");
  if (auto trust = checkTrust(image->get(), S_IFREG, *path); !trust) return trust.error();
  auto folder = walk(path->substr(0, std::max<std::size_t>(path->rfind('/'), 1)), S_IFDIR);
  if (!folder) return folder;
  return openAgain(image->get());
}

}  // namespace platform
