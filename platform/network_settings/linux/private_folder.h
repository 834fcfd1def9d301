// A folder of small files that nobody but this process's user can read, change or lock.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// What a file holds, and which state of it that is.
struct FileContent {
  std::string text;
  struct stat status;
};

/// The sentence of every failure names the file and says when it is not private. The folder and
/// each file in it must belong to the effective user and be open to nobody else; anything else is refused with EPERM,
/// and left as it is.
class PrivateFolder {
 public:
  /// Makes the folder when it is missing.
  static Result<PrivateFolder> open(const std::string& path);

  /// A descriptor of a file, for flock(2); the file is made when it is missing.
  Result<FileDescriptor> openLockFile(const std::string& name) const;

  /// Absent when there is no such file. EFBIG when it is longer than maximumSize.
  Result<std::optional<FileContent>> read(const std::string& name) const;

  /// Puts a text in the place of a file, whole or not at all, whenever the process or the machine ends. On success it
  /// is on the disk, and the file's new state is returned; on failure the old text is, unless only the last step
  /// failed, to have the disk know of the new one, which is then in place until the machine stops. Two processes must
  /// not replace one file at the same time.
  Result<struct stat> replace(const std::string& name, const std::string& text) const;

  static constexpr std::size_t maximumSize = 16 << 20;  ///< bytes

 private:
  explicit PrivateFolder(std::string path) : path_(std::move(path)) {}
  Failure failure(int error, const std::string& name, const char* why = "") const;
  Result<struct stat> checkPrivacy(const FileDescriptor& file, const std::string& name, mode_t type) const;

  std::string path_;
  FileDescriptor folder_;
};

}  // namespace platform
