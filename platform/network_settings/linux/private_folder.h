// A folder of small files that nobody but this process's user can change, nor, unless it is made for readers, read or
// lock.
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

/// The sentence of every failure names the file and says when it is not private. The folder and each file in it must
/// belong to the effective user and be open to nobody else, but for reading to its readers; anything else is refused
/// with EPERM, and left as it is.
class PrivateFolder {
 public:
  enum class Readers { owner, everybody };

  /// Makes the folder when it is missing.
  static Result<PrivateFolder> open(const std::string& path, Readers readers = Readers::owner);

  /// A descriptor of a file, for flock(2); the file is made when it is missing.
  Result<FileDescriptor> openLockFile(const std::string& name) const;

  /// Absent when there is no such file. EFBIG when it is longer than maximumSize.
  Result<std::optional<FileContent>> read(const std::string& name) const;

  /// Puts a text in the place of a file, whole or not at all, whenever the process or the machine ends. On success it
  /// is on the disk, and the file's new state is returned; on failure the old text is, unless only the last step
  /// failed, to have the disk know of the new one, which is then in place until the machine stops. Two processes must
  /// not replace one file at the same time.
  Result<struct stat> replace(const std::string& name, const std::string& text) const;

  /// Gives a file, if there is one, a second name, in the place of what had that before.
  Result<void> link(const std::string& name, const std::string& second) const;

  /// Removes a file, if there is one.
  Result<void> remove(const std::string& name) const;

  /// A file to be written to in place; empty when there is none.
  Result<FileDescriptor> openToWrite(const std::string& name) const;

  static constexpr std::size_t maximumSize = 16 << 20;  ///< bytes

 private:
  PrivateFolder(std::string path, mode_t hidden) : path_(std::move(path)), hidden_(hidden) {}
  Failure failure(int error, const std::string& name, const char* why = "") const;
  Result<struct stat> checkPrivacy(const FileDescriptor& file, const std::string& name, mode_t type) const;

  std::string path_;
  mode_t hidden_;  ///< what nobody else may be allowed
  FileDescriptor folder_;
};

}  // namespace platform
