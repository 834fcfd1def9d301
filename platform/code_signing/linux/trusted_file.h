// Files that only root can change.
#pragma once

#include <string>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// Opens a regular file for reading if root owns it and nobody else may write it, and the same holds for every folder
/// on its path. Symbolic links in such folders are followed. Fails with EPERM if others could change the file or it is
/// not regular. Never waits for a FIFO or device.
Result<FileDescriptor> openTrustedFile(const std::string& path);

/// Opens the file that a process runs, under the same conditions. In addition, the file must be on a mount of the
/// process's own mount namespace, and the process must share the calling process's user namespace. Opens the running
/// file even if its path now leads to another file. Never waits for a file system that a user serves.
Result<FileDescriptor> openTrustedImage(std::int32_t pid);

}  // namespace platform
