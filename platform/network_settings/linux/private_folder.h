// A folder of small files that only this process's user can change. Others can read or lock them only if the folder is
// for everybody.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/base/file_descriptor.h"
#include "platform/base/linux/file_state.h"
#include "platform/base/result.h"

namespace platform {

/// The content of a file, and the state of the file with that content.
struct FileContent {
  std::string text;
  FileState state;
};

/// The folder and each file in it must belong to the effective user and be inaccessible to others, except for reading
/// if the folder is for everybody. Anything else is refused with EPERM and left unchanged. The sentence of every
/// failure names the file.
class PrivateFolder {
 public:
  enum class Readers { owner, everybody };

  /// Opens the folder; creates it if missing.
  static Result<PrivateFolder> open(const std::string& path, Readers readers = Readers::owner);

  /// Opens a file for flock(2); creates it if missing.
  Result<FileDescriptor> openLockFile(const std::string& name) const;

  /// Reads a file; absent if it does not exist. Fails with EFBIG if it is longer than maximumSize.
  Result<std::optional<FileContent>> read(const std::string& name) const;

  /// Replaces a file atomically, even if the process or machine stops meanwhile. On success the text is on disk, and
  /// the file's new state is returned. If only the final fsync of the folder fails, the new text is visible but may be
  /// lost in a crash; after any other failure the old text remains. Two processes must not replace a file at the same
  /// time.
  Result<FileState> replace(const std::string& name, const std::string& text) const;

  /// Makes `second` another name of the file `name`, in place of any file that has that name. If there is no file
  /// `name`, only removes `second`.
  Result<void> link(const std::string& name, const std::string& second) const;

  /// Removes a file. Does nothing if there is none.
  Result<void> remove(const std::string& name) const;

  /// Opens a file for writing in place; empty if it does not exist.
  Result<FileDescriptor> openToWrite(const std::string& name) const;

  static constexpr std::size_t maximumSize = 16 << 20;  ///< bytes

 private:
  PrivateFolder(std::string path, mode_t hidden) : path_(std::move(path)), hidden_(hidden) {}
  Failure failure(int error, const std::string& name, const char* why = "") const;
  Result<struct stat> checkPrivacy(const FileDescriptor& file, const std::string& name, mode_t type) const;

  std::string path_;
  mode_t hidden_;  ///< the permissions that others must not have
  FileDescriptor folder_;
};

}  // namespace platform
