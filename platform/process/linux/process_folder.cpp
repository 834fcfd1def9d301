#include "platform/process/linux/process_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <string>

#include "platform/base/file_io.h"

namespace platform {

namespace {

/// The rest of a file in /proc.
std::string readRest(int file) {
  std::string content;
  std::array<char, 16'384> piece;
  while (true) {
    auto length = readInto(file, piece);
    if (!length || *length == 0) return content;
    content.append(piece.data(), *length);
  }
}

/// The ID of the mount that a file is on (proc(5), fdinfo), followed by a space; empty if unknown.
std::string mountOf(int file) {
  FileDescriptor info(::open(fmt::format("/proc/self/fdinfo/{}", file).c_str(), O_RDONLY | O_CLOEXEC));
  std::istringstream words(readRest(info.get()));
  for (std::string word; words >> word;) {
    if (word == "mnt_id:" && words >> word) return word + " ";
  }
  return {};
}

}  // namespace

ProcessFolder::ProcessFolder(std::int32_t pid)
    : folder_(::open(fmt::format("/proc/{}", pid).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

Result<FileDescriptor> ProcessFolder::open(const char* name, int flags) const {
  FileDescriptor file(openat(folder_.get(), name, flags | O_CLOEXEC));
  if (!file) return lastFailure();
  return file;
}

bool ProcessFolder::sharesNamespace(const char* kind) const {
  struct stat own, other;
  return stat(fmt::format("/proc/self/ns/{}", kind).c_str(), &own) == 0 &&
         fstatat(folder_.get(), fmt::format("ns/{}", kind).c_str(), &other, 0) == 0 && own.st_dev == other.st_dev &&
         own.st_ino == other.st_ino;
}

bool ProcessFolder::isOnSafeMount(int file) const {
  const auto mount = mountOf(file);
  // The open file keeps showing the mount namespace that the process has now, whatever the process enters afterwards. A
  // process that has entered another user namespace cannot come back, so checking that after the opening is enough.
  auto mounts = open("mountinfo", O_RDONLY);
  if (mount.empty() || !mounts || !sharesNamespace("user")) return false;
  std::istringstream lines(readRest(mounts->get()));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(mount)) continue;
    auto type = line.find(" - ");  // file system type, after the optional fields
    return type != line.npos && !line.substr(type + 3).starts_with("fuse");
  }
  return false;
}

Result<FileDescriptor> openImage(std::int32_t pid) {
  ProcessFolder process(pid);
  auto image = process.open("exe", O_PATH);
  if (image && !process.isOnSafeMount(image->get())) return failureOf(EPERM);
  return image;
}

}  // namespace platform
