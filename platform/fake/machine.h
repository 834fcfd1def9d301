// The facts that unit tests steer in place of the machine's: signatures, processes, children, applications, power, the
// clock, sockets, the system log.
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
  std::map<std::string, code_signing::Status> files;  ///< others are missing
  /// What was asked of code signing, as path (empty: the sender) and requirement.
  std::vector<std::pair<std::string, std::string>> checks;

  std::map<std::int32_t, std::string> executables;
  std::map<std::int32_t, std::uint32_t> users;  ///< effective
  std::vector<std::int32_t> killed;

  /// Clock of platform/system/clock.h, and by how much each reading moves it on.
  double continuousSeconds = 0;
  double secondsPerReading = 0;

  std::vector<std::pair<std::int32_t, std::uint32_t>> notedApplications;  ///< pid and user
  std::vector<std::pair<std::string, std::vector<std::string>>> launches;
  std::optional<Failure> launchError;  ///< with which every launch of an application fails

  std::map<std::string, int> assertionStatus;  ///< number of the failure, by type; others succeed
  int releaseStatus = 0;
  std::map<power::AssertionID, std::pair<std::string, std::string>> assertions;  ///< held ones: type and name

  std::optional<Failure> launchFailure;  ///< with which every launch of a child fails
  bool childrenIgnoreTermination = false;
  /// By PID, which are 1001 and so on. A launched child writes "output" and a line end to its output, if it has one.
  std::map<std::int32_t, std::shared_ptr<ChildTask::Implementation>> children;
  /// What was done to processes and children and asked about them, in order.
  std::vector<std::string> steps;

  std::vector<std::pair<SocketProtocol, SocketEntry>> sockets;
  std::map<std::uint64_t, std::int32_t> owners;      ///< by the sockets' identity
  bool ownersKeepSockets = true;                     ///< until they are looked at again
  bool ownersAreKnown = false;                       ///< and are told at once
  std::map<std::uint16_t, SocketEntry> connections;  ///< by remote port
  /// The identities of the sockets that were looked for in each pass over the processes.
  std::vector<std::vector<std::uint64_t>> passes;

  std::vector<std::string> systemLog;
};

/// The machine that the code under test sees. A test begins by assigning a fresh one.
Machine& machine();

/// Ends a child by itself, as the main queue would tell it.
void endChild(std::int32_t pid);

}  // namespace platform::fake
