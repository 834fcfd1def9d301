// Files that nobody but root can change.
#pragma once

#include <string>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// Opens a regular file for reading, provided that root owns it, nobody else may write it, and the same holds of every
/// folder on the way to it. Symbolic links are followed where they stand in such folders. Fails with
/// EPERM when others could change the file or it is not a regular one. Never waits on a FIFO or a device.
Result<FileDescriptor> openTrustedFile(const std::string& path);

/// Opens the file that a process runs, under the same conditions, provided that it lies on a mount of the process's own
/// mount namespace, and the process in this one's user namespace. The file is the one that runs even when its path
/// names another by now. Never waits for a file system that a user serves.
Result<FileDescriptor> openTrustedImage(std::int32_t pid);

}  // namespace platform
