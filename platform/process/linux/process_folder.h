// What the kernel shows of a process (proc(5)).
#pragma once

#include <cstdint>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// The folder /proc/PID, held: once the process has ended nothing is found in it, whichever process has the number by
/// then.
class ProcessFolder {
 public:
  explicit ProcessFolder(std::int32_t pid);

  /// Opens a file of the folder, with O_CLOEXEC besides the given flags.
  Result<FileDescriptor> open(const char* name, int flags) const;

  /// Whether the process lives in the same namespace of a kind ("user", "pid") as this process.
  bool sharesNamespace(const char* kind) const;

  /// Whether a file lies on a mount that root made and that no user's server stands behind: one in the mount namespace
  /// of the process, which shares this process's user namespace. The kernel answers this out of its own tables. Any
  /// question to the file itself, fstat(2) included, may wait for ever on another mount, such as an overlay over a FUSE
  /// that a user mounted in a user namespace of his own.
  bool isOnSafeMount(int file) const;

 private:
  FileDescriptor folder_;
};

/// Opens the file that a process runs with O_PATH. Fails with EPERM when it does not lie on a safe mount.
Result<FileDescriptor> openImage(std::int32_t pid);

}  // namespace platform
