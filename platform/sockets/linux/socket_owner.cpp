// Finds a process that holds a socket. The kernel does not record which processes hold a socket, so their descriptors
// are searched. Every place where a search sees a socket is remembered. Later searches look there first, but always
// verify.
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/base/file_descriptor.h"
#include "platform/sockets/linux/control_group.h"
#include "platform/sockets/linux/known_owners.h"
#include "platform/sockets/socket_table.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto timeAtOnce = std::chrono::microseconds(400);

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// The inode in a descriptor's link, which reads "socket:[INODE]" (proc_pid_fd(5)); noSocket for other links, notSeen
/// if there is no such descriptor.
Inode inodeBehind(int folder, const char* name) {
  constexpr std::string_view prefix = "socket:[";
  std::array<char, 64> target;
  const auto length = readlinkat(folder, name, target.data(), target.size());
  if (length < 0) return notSeen;
  Inode inode = noSocket;
  if (std::string_view(target.data(), static_cast<std::size_t>(length)).starts_with(prefix)) {
    std::from_chars(target.data() + prefix.size(), target.data() + length, inode);
  }
  return inode;
}

std::string pathOf(std::int32_t pid) {
  return fmt::format("/proc/{}/fd", pid);
}

/// The entries of a folder in /proc that are numbers, read while `more` returns true.
template <class More>
std::vector<std::int32_t> numbersIn(DIR* folder, const More& more) {
  std::vector<std::int32_t> numbers;
  while (const auto* entry = folder && more() ? readdir(folder) : nullptr) {
    std::int32_t number = 0;
    if (std::from_chars(entry->d_name, entry->d_name + std::strlen(entry->d_name), number).ec == std::errc()) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

bool isAt(KnownOwners::Place place, Inode inode) {
  return inodeBehind(AT_FDCWD, fmt::format("/proc/{}/fd/{}", place.pid, place.descriptor).c_str()) == inode;
}

/// A search for the owners of sockets. It ends when all are found or at the deadline.
class Search {
 public:
  Search(std::span<const SocketEntry> sockets, const std::function<bool(std::size_t, std::int32_t)>& found,
         std::optional<Clock::time_point> end)
      : sockets_(sockets), found_(found), end_(end) {
    for (std::size_t index = 0; index < sockets.size(); ++index) {
      wanted_.emplace(sockets[index].identity, index);
      groups_.insert(sockets[index].controlGroup);
      users_.insert(sockets[index].userID);
    }
  }

  void lookAtPlaces() {
    for (const auto& socket : sockets_) {
      if (auto place = knownOwners().place(socket.identity); place && isAt(*place, socket.identity)) {
        report(socket.identity, place->pid);
      }
    }
  }

  void lookAtLikelyProcesses() {
    for (bool inGroups : {true, false}) lookAtKnown(inGroups, Which::guesses);
    lookAtKnown(true, Which::changes);
    for (auto group : groups_) {
      if (isOver()) return;
      for (auto pid : processesOfControlGroup(group)) lookAtAll(pid);
    }
    lookAtKnown(false, Which::changes);
  }

  void lookAtAllProcesses() {
    for (bool inGroups : {true, false}) lookAtKnown(inGroups, Which::all);
    const Directory folder(opendir("/proc"));
    auto pids = numbersIn(folder.get(), [this] { return !isOver(); });
    std::sort(pids.rbegin(), pids.rend());
    // The processes of the sockets' users come first. The user of a process is looked up only when its turn comes,
    // because the search may end before.
    std::vector<std::int32_t> others;
    for (auto pid : pids) {
      if (isOver()) return;
      struct stat status;
      if (fstatat(dirfd(folder.get()), fmt::format("{}", pid).c_str(), &status, 0) != 0) continue;
      if (users_.contains(status.st_uid)) {
        lookAtAll(pid);
      } else {
        others.push_back(pid);
      }
    }
    for (auto pid : others) lookAtAll(pid);
  }

 private:
  bool isOver() const { return wanted_.empty() || (end_ && Clock::now() >= *end_); }

  void report(Inode inode, std::int32_t pid) {
    auto [next, last] = wanted_.equal_range(inode);
    while (next != last) {
      const auto index = next->second;
      if (!found_(index, pid)) {
        ++next;
        continue;
      }
      knownOwners().noteOwner(pid, sockets_[index]);
      next = wanted_.erase(next);
    }
  }

  /// Looks at one descriptor of a process; `folder` is the process's open folder of descriptors.
  Inode look(std::int32_t pid, int folder, std::int32_t number) {
    std::array<char, 16> name{};
    std::to_chars(name.data(), name.data() + name.size() - 1, number);
    const auto inode = inodeBehind(folder, name.data());
    if (inode != noSocket && inode != notSeen) {
      knownOwners().notePlace(inode, {.pid = pid, .descriptor = number});
      report(inode, pid);
    }
    return inode;
  }

  enum class Which { guesses, changes, all };

  void lookAtKnown(bool inGroups, Which which) {
    for (const auto& process : knownOwners().processes(groups_, inGroups)) {
      if (isOver()) return;
      std::unique_lock lock(process->mutex, std::defer_lock);
      if (!end_) {
        lock.lock();
      } else if (!lock.try_lock()) {
        continue;
      }
      if (which == Which::guesses) {
        lookAtGuesses(*process);
      } else {
        lookAtListed(*process, which);
      }
    }
  }

  /// Looks where a new socket is likely to be: at descriptors that were sockets before, since their numbers may have
  /// been reused, and at the lowest free numbers. Much faster than listing the folder.
  void lookAtGuesses(KnownProcess& process) {
    constexpr int maximumSockets = 64, maximumFree = 4;
    const FileDescriptor folder(open(pathOf(process.pid).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return knownOwners().forget(process.pid);  // it has ended
    int sockets = 0, free = 0;
    for (std::size_t number = 0; free < maximumFree && sockets < maximumSockets; ++number) {
      const auto before = process.before(number);
      if (before == noSocket) continue;
      if (isOver()) break;
      ++(before == notSeen ? free : sockets);
      process.note(number, look(process.pid, folder.get(), static_cast<std::int32_t>(number)));
    }
  }

  /// Looks at descriptors that are new, then at those that were sockets or, with Which::all, at all others.
  void lookAtListed(KnownProcess& process, Which which) {
    const Directory folder(opendir(pathOf(process.pid).c_str()));
    auto numbers = numbersIn(folder.get(), [this] { return !isOver(); });
    auto before = [&](std::int32_t number) { return process.before(static_cast<std::size_t>(number)); };
    if (which == Which::changes) std::erase_if(numbers, [&](auto number) { return before(number) == noSocket; });
    std::stable_partition(numbers.begin(), numbers.end(), [&](auto number) { return before(number) == notSeen; });
    for (auto number : numbers) {
      if (isOver()) break;
      process.note(static_cast<std::size_t>(number), look(process.pid, dirfd(folder.get()), number));
    }
  }

  void lookAtAll(std::int32_t pid) {
    if (isOver()) return;
    const Directory folder(opendir(pathOf(pid).c_str()));
    for (auto number : numbersIn(folder.get(), [this] { return !isOver(); })) {
      if (isOver()) return;
      look(pid, dirfd(folder.get()), number);
    }
  }

  const std::span<const SocketEntry> sockets_;
  const std::function<bool(std::size_t, std::int32_t)>& found_;
  const std::optional<Clock::time_point> end_;
  std::unordered_multimap<Inode, std::size_t> wanted_;  // indices of sockets not found yet
  std::unordered_set<std::uint64_t> groups_;
  std::unordered_set<std::uint32_t> users_;
};

}  // namespace

std::optional<std::int32_t> likelySocketOwner(const SocketEntry& socket) {
  std::optional<std::int32_t> owner;
  const std::function found = [&](std::size_t, std::int32_t pid) {
    owner = pid;
    return true;
  };
  Search search({&socket, 1}, found, Clock::now() + timeAtOnce);
  search.lookAtPlaces();
  search.lookAtLikelyProcesses();
  return owner;
}

void findSocketOwners(std::span<const SocketEntry> sockets,
                      const std::function<bool(std::size_t index, std::int32_t pid)>& found) {
  Search search(sockets, found, std::nullopt);
  search.lookAtPlaces();
  search.lookAtLikelyProcesses();
  search.lookAtAllProcesses();
}

bool seemsToHoldSocket(std::int32_t pid, const SocketEntry& socket) {
  auto place = knownOwners().place(socket.identity);
  return place && place->pid == pid && isAt(*place, socket.identity);
}

bool holdsSocket(std::int32_t pid, const SocketEntry& socket) {
  if (seemsToHoldSocket(pid, socket)) return true;
  const Directory folder(opendir(pathOf(pid).c_str()));
  for (auto number : numbersIn(folder.get(), [] { return true; })) {
    if (inodeBehind(dirfd(folder.get()), fmt::format("{}", number).c_str()) == socket.identity) return true;
  }
  return false;
}

}  // namespace platform
