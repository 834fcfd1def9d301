#include "platform/process/named_files.h"

#include <fcntl.h>

#include <filesystem>

namespace platform {

Result<FileDescriptor> openForAppending(const std::string& path) {
  FileDescriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return lastFailure();
  return file;
}

std::string resolvedPath(const std::string& path) {
  std::error_code failure;
  auto length = path.find_last_not_of('/') + 1;
  return path.starts_with('/') ? std::filesystem::weakly_canonical(path.substr(0, length), failure).string() : "";
}

}  // namespace platform
