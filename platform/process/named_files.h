// Files whose paths come from a client. They may not exist, or may be of an unexpected kind.
//
// On Linux, paths through links that only the kernel can make, such as /proc/PID/root, are refused: they may lead into
// a user's private namespace, to a file system that never answers.
#pragma once

#include <string>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// Opens an existing file for appending. Fails if the last component is a symbolic link. Does not wait for the reader
/// of a FIFO.
Result<FileDescriptor> openForAppending(const std::string& path);

/// The absolute path without symbolic links, "." and "..", and trailing slashes. The file need not exist, because a
/// running executable may have been renamed. Empty if `path` is not absolute or cannot be resolved.
std::string resolvedPath(const std::string& path);

}  // namespace platform
