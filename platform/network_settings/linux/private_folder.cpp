#include "platform/network_settings/linux/private_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/base/file_io.h"

namespace platform {

Result<PrivateFolder> PrivateFolder::open(const std::string& path, Readers readers) {
  PrivateFolder folder(path, readers == Readers::owner ? S_IRWXG | S_IRWXO : S_IWGRP | S_IWOTH);
  const mode_t mode = 0777 & ~folder.hidden_;
  if (mkdir(path.c_str(), mode) == 0) {
    if (chmod(path.c_str(), mode) != 0) return folder.failure(errno, "");  // the umask may have removed permissions
    FileDescriptor parent(::open((path + "/..").c_str(), O_RDONLY | O_CLOEXEC));
    if (!parent || fsync(parent.get()) != 0) return folder.failure(errno, "..");
  } else if (errno != EEXIST) {
    return folder.failure(errno, "");
  }
  folder.folder_.reset(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder.folder_) return folder.failure(errno, "");
  if (auto checked = folder.checkPrivacy(folder.folder_, "", S_IFDIR); !checked) return checked.error();
  return folder;
}

Result<FileDescriptor> PrivateFolder::openLockFile(const std::string& name) const {
  // O_WRONLY: NFS requires it for an exclusive lock.
  FileDescriptor file(
      openat(folder_.get(), name.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!file) return failure(errno, name);
  if (auto checked = checkPrivacy(file, name, S_IFREG); !checked) return checked.error();
  return file;
}

Result<std::optional<FileContent>> PrivateFolder::read(const std::string& name) const {
  // O_NONBLOCK: opening something other than a regular file must not block.
  FileDescriptor file(openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) {
    if (errno == ENOENT) return std::nullopt;
    return failure(errno, name);
  }
  auto status = checkPrivacy(file, name, S_IFREG);
  if (!status) return status.error();
  if (status->st_size > static_cast<off_t>(maximumSize)) return failure(EFBIG, name);
  FileContent content{.text = std::string(static_cast<std::size_t>(status->st_size), '\0'), .state = stateOf(*status)};
  auto length = readInto(file.get(), content.text);
  if (!length) return failure(length.error().number, name);
  // No file is ever truncated, so this one cannot have become shorter.
  if (*length < content.text.size()) return failure(EIO, name);
  return content;
}

Result<FileState> PrivateFolder::replace(const std::string& name, const std::string& text) const {
  if (text.size() > maximumSize) return failure(EFBIG, name);
  const std::string draft = name + ".new";
  if (auto removed = remove(draft); !removed) return removed.error();  // left by a killed process
  FileDescriptor file(openat(folder_.get(), draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return failure(errno, draft);
  auto written = writeAll(file.get(), text);
  if (written) written = resultOfCall(fchmod(file.get(), 0666 & ~hidden_));
  if (written) written = resultOfCall(fsync(file.get()));
  if (written) written = resultOfCall(renameat(folder_.get(), draft.c_str(), folder_.get(), name.c_str()));
  if (!written) {
    unlinkat(folder_.get(), draft.c_str(), 0);
    return failure(written.error().number, draft);
  }
  // Read after the rename, which changes the file's ctime.
  struct stat status;
  if (fsync(folder_.get()) != 0) return failure(errno, name, " is replaced, but may be lost in a crash");
  if (fstat(file.get(), &status) != 0) return failure(errno, name);
  return stateOf(status);
}

Result<void> PrivateFolder::link(const std::string& name, const std::string& second) const {
  if (auto removed = remove(second); !removed) return removed;
  if (linkat(folder_.get(), name.c_str(), folder_.get(), second.c_str(), 0) == 0 || errno == ENOENT) return {};
  return failure(errno, second);
}

Result<void> PrivateFolder::remove(const std::string& name) const {
  if (unlinkat(folder_.get(), name.c_str(), 0) == 0 || errno == ENOENT) return {};
  return failure(errno, name);
}

Result<FileDescriptor> PrivateFolder::openToWrite(const std::string& name) const {
  FileDescriptor file(openat(folder_.get(), name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) {
    if (errno == ENOENT) return file;
    return failure(errno, name);
  }
  if (auto checked = checkPrivacy(file, name, S_IFREG); !checked) return checked.error();
  return file;
}

Result<struct stat> PrivateFolder::checkPrivacy(const FileDescriptor& file, const std::string& name,
                                                mode_t type) const {
  struct stat status;
  if (fstat(file.get(), &status) != 0) return failure(errno, name);
  bool isPrivate = (status.st_mode & S_IFMT) == type && status.st_uid == geteuid() && (status.st_mode & hidden_) == 0;
  if (!isPrivate) return failure(EPERM, name, " does not belong to this user alone");
  return status;
}

Failure PrivateFolder::failure(int error, const std::string& name, const char* why) const {
  return failureOf(error, path_ + (name.empty() ? "" : "/") + name + why);
}

}  // namespace platform
