// The peer of an accepted Unix socket.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "platform/ipc/service.h"
#include "platform/process/process.h"

namespace platform::ipc {

class Sender {
 public:
  /// Reads what the kernel recorded when the peer connected (SO_PEERCRED, unix(7)).
  explicit Sender(int socket);

  std::int32_t pid() const { return process_.pid(); }  ///< 0 if the peer is not in this process's PID namespace
  uid_t uid() const { return uid_; }
  gid_t gid() const { return gid_; }

  /// Opens the peer's pidfd, which, unlike its PID, never refers to another process. False if that fails.
  [[nodiscard]] bool takePidfd(int socket);
  /// The peer's process; without a handle before takePidfd().
  const Process& process() const { return process_; }

  /// Whether the process is still alive. If so, what was read from /proc/PID before belongs to it. False before
  /// takePidfd().
  bool isAlive() const;

  /// Whether the peer got a group from a set-group-ID executable: it connected with the group as its effective group,
  /// and its real group is another one. Under sg(1) both are the same; the dynamic linker then obeys LD_PRELOAD, so the
  /// user could have made the executable load any code. Root always passes if it connected with the group.
  bool wasGivenGroup(gid_t group) const;

  /// Whether the peer is in the same user and PID namespaces as this process.
  bool sharesNamespaces() const;

 private:
  Process process_{0, {}};
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

}  // namespace platform::ipc
