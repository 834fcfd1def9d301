// Places where sockets were seen. They are only hints, to be verified before use.
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

/// A process in which a socket was found recently.
class KnownProcess {
 public:
  explicit KnownProcess(std::int32_t id) : pid(id) {}

  const std::int32_t pid;
  std::mutex mutex;  ///< held while the process is searched; protects the following

  /// What a descriptor was at the last look: the inode of a socket, noSocket for any other file, or notSeen if its
  /// number was free or has not been looked at.
  Inode before(std::size_t number) const { return number < descriptors_.size() ? descriptors_[number] : notSeen; }
  void note(std::size_t number, Inode inode);

 private:
  std::vector<Inode> descriptors_;  // by number
};

/// Uses 5 MiB of memory at most. Any thread.
class KnownOwners {
 public:
  struct Place {
    std::int32_t pid;
    std::int32_t descriptor;
  };

  /// Where a socket was last seen; absent if unknown.
  std::optional<Place> place(Inode inode);
  void notePlace(Inode inode, Place place);

  /// Records that a process holds a socket, and moves the process to the front.
  void noteOwner(std::int32_t pid, const SocketEntry& socket);
  void forget(std::int32_t pid);

  /// The known processes, latest first: those found through a socket of one of these control groups, or, if `inGroups`
  /// is false, the others.
  std::vector<std::shared_ptr<KnownProcess>> processes(const std::unordered_set<std::uint64_t>& groups, bool inGroups);

 private:
  struct Owner {
    std::shared_ptr<KnownProcess> process;
    std::uint64_t controlGroup;  // the control group of the socket
  };

  std::mutex mutex_;
  std::unordered_map<Inode, Place> places_;
  std::deque<Owner> owners_;
};

/// The instance of this process.
KnownOwners& knownOwners();

}  // namespace platform
