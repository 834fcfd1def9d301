// Where sockets were seen: places to look at first, which are never believed without a look.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/sockets/socket_table.h"

namespace platform {

using Inode = std::uint64_t;
inline constexpr Inode noSocket = 0, notSeen = ~Inode{0};

/// A process that a socket was found in lately.
class KnownProcess {
 public:
  explicit KnownProcess(std::int32_t id) : pid(id) {}

  const std::int32_t pid;
  std::mutex mutex;  ///< held while the process is looked at, and for what follows

  /// What a descriptor was when it was last looked at: the inode of a socket, noSocket, or notSeen.
  Inode before(std::size_t number) const { return number < descriptors_.size() ? descriptors_[number] : notSeen; }
  void note(std::size_t number, Inode inode);

 private:
  std::vector<Inode> descriptors_;  // by number
};

/// What is remembered takes 5 MiB at most. Any thread.
class KnownOwners {
 public:
  struct Place {
    std::int32_t pid;
    std::int32_t descriptor;
  };

  /// Where a socket was seen last; absent when that is not known.
  std::optional<Place> place(Inode inode);
  void notePlace(Inode inode, Place place);

  /// A process was found to hold a socket: it comes first from now on.
  void noteOwner(std::int32_t pid, const SocketEntry& socket);
  void forget(std::int32_t pid);

  /// The known processes, the latest first: those that were found by a socket of one of these control groups, or the
  /// others.
  std::vector<std::shared_ptr<KnownProcess>> processes(const std::unordered_set<std::uint64_t>& groups, bool inGroups);

 private:
  struct Owner {
    std::shared_ptr<KnownProcess> process;
    std::uint64_t controlGroup;  // of the socket
  };

  std::mutex mutex_;
  std::unordered_map<Inode, Place> places_;
  std::deque<Owner> owners_;
};

/// Those of this process.
KnownOwners& knownOwners();

}  // namespace platform
