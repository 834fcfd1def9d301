#include "platform/network_settings/linux/private_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/base/file_io.h"

namespace platform {

PrivateFolder::PrivateFolder(std::string path) : path_(std::move(path)) {
  if (mkdir(path_.c_str(), 0700) == 0) {
    FileDescriptor parent(open((path_ + "/..").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent || fsync(parent.get()) != 0) fail(errno, "..");
  } else if (errno != EEXIST) {
    fail(errno, "");
  }
  folder_.reset(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder_) fail(errno, "");
  check(folder_, "", S_IFDIR);
}

FileDescriptor PrivateFolder::openLockFile(const std::string& name) const {
  FileDescriptor file(
      openat(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!file) fail(errno, name);
  check(file, name, S_IFREG);
  return file;
}

std::optional<FileContent> PrivateFolder::read(const std::string& name) const {
  // Not blocking: what is no regular file shall not be waited for.
  FileDescriptor file(openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file) fail(errno, name);
  FileContent content{.text = {}, .status = check(file, name, S_IFREG)};
  if (content.status.st_size > static_cast<off_t>(maximumSize)) fail(EFBIG, name);
  content.text.resize(static_cast<std::size_t>(content.status.st_size));
  auto length = readInto(file.get(), content.text);
  if (!length) fail(length.error().number, name);
  if (*length < content.text.size()) fail(EIO, name);  // nobody shortens a file that is only ever replaced
  return content;
}

struct stat PrivateFolder::replace(const std::string& name, const std::string& text) const {
  if (text.size() > maximumSize) fail(EFBIG, name);
  const std::string draft = name + ".new";
  if (unlinkat(folder_.get(), draft.c_str(), 0) != 0 && errno != ENOENT) fail(errno, draft);  // of one that was killed
  FileDescriptor file(openat(folder_.get(), draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) fail(errno, draft);
  struct stat status;
  if (!writeAll(file.get(), text) || fsync(file.get()) != 0 ||
      renameat(folder_.get(), draft.c_str(), folder_.get(), name.c_str()) != 0) {
    int error = errno;
    unlinkat(folder_.get(), draft.c_str(), 0);
    fail(error, draft);
  }
  // After the renaming, which counts as a change of the file.
  if (fsync(folder_.get()) != 0) fail(errno, name, " is replaced, but maybe not on the disk");
  if (fstat(file.get(), &status) != 0) fail(errno, name);
  return status;
}

struct stat PrivateFolder::check(const FileDescriptor& file, const std::string& name, mode_t type) const {
  struct stat status;
  if (fstat(file.get(), &status) != 0) fail(errno, name);
  bool isPrivate =
      (status.st_mode & S_IFMT) == type && status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (!isPrivate) fail(EPERM, name, " does not belong to this user alone");
  return status;
}

void PrivateFolder::fail(int error, const std::string& name, const char* why) const {
  throw std::system_error(error, std::generic_category(), path_ + (name.empty() ? "" : "/") + name + why);
}

}  // namespace platform
