// The peer of an accepted Unix socket.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "platform/ipc/service.h"
#include "platform/process/process.h"

namespace platform::ipc {

class Sender {
 public:
  /// What the kernel recorded when the peer connected (SO_PEERCRED, unix(7)).
  explicit Sender(int socket);

  std::int32_t pid() const { return process_.pid(); }  ///< 0: not in this process's pid namespace
  uid_t uid() const { return uid_; }
  gid_t gid() const { return gid_; }

  /// Takes a pidfd of the peer, from here on the one handle on it that no other process can come to stand behind.
  [[nodiscard]] bool takePidfd(int socket);
  /// The peer behind its pidfd; without one before that was taken.
  const Process& process() const { return process_; }

  /// Whether the process has not ended. What was read under /proc/PID before is true of it if it still lives.
  bool isAlive() const;

  /// Whether it has the group's right from a set-group-ID executable: it connected as of that group, and is not of it
  /// otherwise. What a user runs by sg(1) is, and then loads what LD_PRELOAD says into such an executable. Root may be.
  bool wasGivenGroup(gid_t group) const;

  /// Whether it lives in the same user and pid namespaces as this process.
  bool sharesNamespaces() const;

 private:
  Process process_{0, {}};
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

}  // namespace platform::ipc
