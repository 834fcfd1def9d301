// The state of a file.
#pragma once

#include <sys/stat.h>

#include <tuple>

namespace platform {

/// Device, inode, size, mtime and ctime. Any change of the content changes one of these.
using FileState = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;

inline FileState stateOf(const struct stat& status) {
  return {status.st_dev,          status.st_ino,         status.st_size,        status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

}  // namespace platform
