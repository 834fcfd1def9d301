// Access to /proc/PID (proc(5)).
#pragma once

#include <cstdint>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// The folder /proc/PID, held open. After the process has ended, nothing is found in it, even if the PID has been
/// reused.
class ProcessFolder {
 public:
  explicit ProcessFolder(std::int32_t pid);

  /// Opens a file in the folder, with O_CLOEXEC in addition to the given flags.
  Result<FileDescriptor> open(const char* name, int flags) const;

  /// Whether the process shares the calling process's namespace of a kind ("user", "pid").
  bool sharesNamespace(const char* kind) const;

  /// Whether a file is on a mount that root made and whose file system is not served by a user's process. Only mounts
  /// in the process's mount namespace qualify, and only if the process shares the calling process's user namespace.
  ///
  /// The kernel answers from its own tables. Asking the file itself, even with fstat(2), may block for ever on other
  /// mounts, such as an overlay over a FUSE file system that a user mounted in a private user namespace.
  bool isOnSafeMount(int file) const;

 private:
  FileDescriptor folder_;
};

/// Opens, with O_PATH, the file that a process runs. Fails with EPERM if it is not on a safe mount.
Result<FileDescriptor> openImage(std::int32_t pid);

}  // namespace platform
