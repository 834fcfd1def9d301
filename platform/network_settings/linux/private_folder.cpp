#include "platform/network_settings/linux/private_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace platform {

namespace {

/// Writes all of a text; false with errno.
bool writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    auto written = write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

PrivateFolder::PrivateFolder(std::string path, Readers readers)
    : path_(std::move(path)), hidden_(readers == Readers::owner ? S_IRWXG | S_IRWXO : S_IWGRP | S_IWOTH) {
  const mode_t mode = 0777 & ~hidden_;
  if (mkdir(path_.c_str(), mode) == 0) {
    if (chmod(path_.c_str(), mode) != 0) fail(errno, "");
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
  std::size_t length = 0;
  while (length < content.text.size()) {
    auto got = ::read(file.get(), content.text.data() + length, content.text.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(errno, name);
    if (got == 0) fail(EIO, name);  // nobody shortens a file that is only ever replaced
    length += static_cast<std::size_t>(got);
  }
  return content;
}

struct stat PrivateFolder::replace(const std::string& name, const std::string& text) const {
  if (text.size() > maximumSize) fail(EFBIG, name);
  const std::string draft = name + ".new";
  remove(draft);  // of one that was killed
  FileDescriptor file(openat(folder_.get(), draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) fail(errno, draft);
  struct stat status;
  if (!writeAll(file.get(), text) || fchmod(file.get(), 0666 & ~hidden_) != 0 || fsync(file.get()) != 0 ||
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

void PrivateFolder::link(const std::string& name, const std::string& second) const {
  remove(second);
  int result = linkat(folder_.get(), name.c_str(), folder_.get(), second.c_str(), 0);
  if (result != 0 && errno != ENOENT) fail(errno, second);
}

void PrivateFolder::remove(const std::string& name) const {
  if (unlinkat(folder_.get(), name.c_str(), 0) != 0 && errno != ENOENT) fail(errno, name);
}

void PrivateFolder::zeroHead(const std::string& name, std::size_t size) const {
  FileDescriptor file(openat(folder_.get(), name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT) return;
  if (!file) fail(errno, name);
  check(file, name, S_IFREG);
  const std::string zeros(size, '\0');
  if (pwrite(file.get(), zeros.data(), size, 0) != static_cast<ssize_t>(size)) fail(errno, name);
}

struct stat PrivateFolder::check(const FileDescriptor& file, const std::string& name, mode_t type) const {
  struct stat status;
  if (fstat(file.get(), &status) != 0) fail(errno, name);
  bool isPrivate = (status.st_mode & S_IFMT) == type && status.st_uid == geteuid() && (status.st_mode & hidden_) == 0;
  if (!isPrivate) fail(EPERM, name, " does not belong to this user alone");
  return status;
}

void PrivateFolder::fail(int error, const std::string& name, const char* why) const {
  throw std::system_error(error, std::generic_category(), path_ + (name.empty() ? "" : "/") + name + why);
}

}  // namespace platform
