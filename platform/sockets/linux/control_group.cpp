#include "platform/sockets/linux/control_group.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <functional>

#include "platform/base/file_descriptor.h"

namespace platform {

namespace {

constexpr std::uint64_t root = 1;
constexpr std::size_t maximumProcesses = 64;
constexpr int kernfsIdentity = 0xFE;  // FILEID_KERNFS of linux/exportfs.h

FileDescriptor openFolder(const char* path) {
  return FileDescriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

std::vector<std::int32_t> processesOfControlGroup(std::uint64_t group) {
  if (group <= root) return {};
  static const FileDescriptor mount = [] {
    auto besideVersion1 = openFolder("/sys/fs/cgroup/unified");
    return besideVersion1 ? std::move(besideVersion1) : openFolder("/sys/fs/cgroup");
  }();
  alignas(file_handle) std::array<char, sizeof(file_handle) + sizeof group> bytes{};
  auto* handle = reinterpret_cast<file_handle*>(bytes.data());
  handle->handle_bytes = sizeof group;
  handle->handle_type = kernfsIdentity;
  std::memcpy(bytes.data() + sizeof(file_handle), &group, sizeof group);
  const FileDescriptor folder(open_by_handle_at(mount.get(), handle, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const FileDescriptor list(folder ? openat(folder.get(), "cgroup.procs", O_RDONLY | O_CLOEXEC) : -1);
  std::array<char, 1024> text;  // enough for the maximum number of processes
  const auto length = list ? read(list.get(), text.data(), text.size()) : 0;
  std::vector<std::int32_t> pids;
  const char* end = text.data() + std::max<ssize_t>(length, 0);
  for (const char* next = text.data(); next < end; ++next) {
    std::int32_t pid = 0;
    next = std::from_chars(next, end, pid).ptr;
    if (pid > 0) pids.push_back(pid);  // 0 denotes a process in another PID namespace
  }
  if (pids.size() > maximumProcesses) return {};
  std::sort(pids.begin(), pids.end(), std::greater());
  return pids;
}

}  // namespace platform
