#include "helper/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/HXLog.h"
#include "platform/base/file_descriptor.h"
#include "platform/system/system_log.h"

namespace {

constexpr int attempts = 3;

bool isSafe(const struct stat& status, uid_t user) {
  return (status.st_mode & S_IFMT) == S_IFREG && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 && status.st_uid == user &&
         status.st_nlink == 1;
}

}  // namespace

void BRHOpenLogFile(const std::string& path) {
  const uid_t user = geteuid();
  for (int attempt = 1;; ++attempt) {
    {
      // Without O_EXCL and O_TRUNC, because lines are appended to a safe file that is already there.
      platform::FileDescriptor file(
          open(path.c_str(), O_WRONLY | O_NONBLOCK | O_APPEND | O_NOFOLLOW | O_CREAT | O_CLOEXEC, 0644));
      struct stat status;
      if (file && fstat(file.get(), &status) == 0 && isSafe(status, user) && fchmod(file.get(), 0644) == 0) {
        return HXSetLogFilePath(path);
      }
    }
    if ((unlink(path.c_str()) != 0 && errno != ENOENT) || attempt == attempts) {
      platform::systemLog("Brimo Helper refused to open an unsafe log file");
      return;
    }
  }
}
