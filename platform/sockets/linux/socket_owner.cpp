// From a socket to the process that holds it: the kernel keeps no such link, so processes are searched for one.
#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/sockets/socket_table.h"

namespace platform {

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// What the link of a descriptor of the socket reads (proc_pid_fd(5)).
std::string linkOf(const SocketEntry& socket) {
  return fmt::format("socket:[{}]", socket.identity);
}

/// Whether the link of one of the process's descriptors reads so.
bool holdsLink(std::int32_t pid, std::string_view link) {
  Directory descriptors(opendir(fmt::format("/proc/{}/fd", pid).c_str()));
  if (!descriptors) return false;
  while (const auto* entry = readdir(descriptors.get())) {
    std::array<char, 64> target;
    auto length = readlinkat(dirfd(descriptors.get()), entry->d_name, target.data(), target.size());
    if (length > 0 && link == std::string_view(target.data(), static_cast<std::size_t>(length))) return true;
  }
  return false;
}

/// All processes: those of one user first, then the others, each newest first.
std::vector<std::int32_t> processesOfUserFirst(std::uint32_t userID) {
  std::vector<std::pair<bool, std::int32_t>> found;
  Directory processes(opendir("/proc"));
  while (const auto* entry = processes ? readdir(processes.get()) : nullptr) {
    std::int32_t pid = 0;
    std::string_view name = entry->d_name;
    if (std::from_chars(name.data(), name.data() + name.size(), pid).ec != std::errc()) continue;
    struct stat status;
    if (fstatat(dirfd(processes.get()), entry->d_name, &status, 0) == 0)
      found.emplace_back(status.st_uid == userID, pid);
  }
  std::sort(found.rbegin(), found.rend());
  std::vector<std::int32_t> pids;
  for (const auto& [ofUser, pid] : found) pids.push_back(pid);
  return pids;
}

/// Processes found lately, the latest first: few processes own most of the sockets that are asked for.
class RecentOwners {
 public:
  std::deque<std::int32_t> snapshot() {
    std::lock_guard lock(mutex_);
    return pids_;
  }

  void note(std::int32_t pid) {
    std::lock_guard lock(mutex_);
    std::erase(pids_, pid);
    pids_.push_front(pid);
    if (pids_.size() > 8) pids_.pop_back();
  }

 private:
  std::mutex mutex_;
  std::deque<std::int32_t> pids_;
};

}  // namespace

std::optional<std::int32_t> socketOwner(const SocketEntry& socket) {
  static auto& recent = *new RecentOwners;  // never destroyed: probes may run while the process ends
  const auto link = linkOf(socket);
  auto search = [&](const auto& pids) -> std::optional<std::int32_t> {
    for (auto pid : pids) {
      if (!holdsLink(pid, link)) continue;
      recent.note(pid);
      return pid;
    }
    return std::nullopt;
  };
  if (auto owner = search(recent.snapshot())) return owner;
  return search(processesOfUserFirst(socket.userID));
}

bool holdsSocket(std::int32_t pid, const SocketEntry& socket) {
  return holdsLink(pid, linkOf(socket));
}

}  // namespace platform
