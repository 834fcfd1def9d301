// A fake machine for unit tests: its signatures, processes, children, applications, power assertions, clock, sockets
// and system log.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/code_signing/code_signing.h"
#include "platform/ipc/service.h"
#include "platform/process/child_task.h"
#include "platform/sockets/socket_table.h"
#include "platform/system/power.h"

namespace platform::fake {

struct Machine {
  code_signing::Status senderStatus = code_signing::success;
  std::map<std::string, code_signing::Status> files;  ///< other files do not exist
  /// Every code-signing check: path (empty for a sender) and requirement.
  std::vector<std::pair<std::string, std::string>> checks;

  std::map<std::int32_t, std::string> executables;
  std::map<std::int32_t, std::uint32_t> users;  ///< effective user IDs
  std::vector<std::int32_t> killed;

  /// The clock of platform/system/clock.h, and how far each reading advances it.
  double continuousSeconds = 0;
  double secondsPerReading = 0;

  std::vector<std::pair<std::int32_t, std::uint32_t>> notedApplications;  ///< PID and user ID
  std::vector<std::pair<std::string, std::vector<std::string>>> launches;
  std::optional<Failure> launchError;  ///< if set, every launch of an application fails with it

  std::map<std::string, int> assertionStatus;  ///< number of the failure by type; other types succeed
  int releaseStatus = 0;
  std::map<power::AssertionID, std::pair<std::string, std::string>> assertions;  ///< those held: type and name

  std::optional<Failure> launchFailure;  ///< if set, every launch of a child fails with it
  bool childrenIgnoreTermination = false;
  /// Children by PID; PIDs are 1001, 1002 and so on. A launched child writes "output" and a line end to its output, if
  /// it has one.
  std::map<std::int32_t, std::shared_ptr<ChildTask::Implementation>> children;
  /// Actions on processes and children, and look-ups of processes, in order.
  std::vector<std::string> steps;

  std::vector<std::pair<SocketProtocol, SocketEntry>> sockets;
  std::map<std::uint64_t, std::int32_t> owners;      ///< by socket identity
  bool ownersKeepSockets = true;                     ///< whether owners still hold their sockets when checked again
  bool ownersAreKnown = false;                       ///< whether likelySocketOwner() knows them
  std::map<std::uint16_t, SocketEntry> connections;  ///< by remote port
  std::optional<SocketEntry> likelySocket;
  /// For each pass over the processes, the identities of the sockets looked for.
  std::vector<std::vector<std::uint64_t>> passes;

  std::vector<std::string> systemLog;
};

/// The machine seen by the code under test. Each test begins by assigning a new one.
Machine& machine();

/// Ends a child, and reports its end as the main queue would.
void endChild(std::int32_t pid);

}  // namespace platform::fake
