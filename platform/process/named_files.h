// Files that a client names, which need not exist, and need not be what they should be.
//
// On Linux none is reached through a link of the kernel's own, such as /proc/PID/root: that leads to where a user may
// have mounted, in namespaces of his own, what never answers.
#pragma once

#include <string>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// Opens an existing file for appending: not through a symbolic link as the last component, and without waiting for
/// the reader of a FIFO.
Result<FileDescriptor> openForAppending(const std::string& path);

/// An absolute path without symbolic links, dots and a "/" at its end, whether or not there is such a file: a running
/// executable may have been renamed. Empty for other texts.
std::string resolvedPath(const std::string& path);

}  // namespace platform
