// Starts an application through systemd, where systemd is process 1.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/application/linux/launch.h"
#include "platform/base/result.h"

namespace platform {

/// Starts the executable at `path` as a transient service of process 1, among the processes of its user. Blocks until
/// the application runs, at most 30 seconds. Any thread.
/// - It has the given identity, the environment completed by completeEnvironment(), the user's limits (PAM), and the
///   home folder or "/" as working directory.
/// - It inherits nothing from this process: no limits, sandbox, namespaces or control group.
/// - The service lasts as long as any process in it, and ends with user@UID.service.
/// - `path` must be UTF-8. `identifier`, the application's bundle identifier, becomes part of the service's name.
Result<void> startTransientService(const std::string& identifier, const std::string& path,
                                   const std::vector<std::string>& arguments, const ApplicationIdentity& identity);

/// The state of a service (org.freedesktop.systemd1(5)).
struct ServiceState {
  bool hasJob;              ///< its start is queued or in progress
  std::string activeState;  ///< property ActiveState
  bool runsApplication;     ///< its main process has executed the application
  std::string result;       ///< "success" or the kind of failure
  std::int32_t exitStatus;  ///< exit status of the main process
};

/// The outcome of the start; absent while it is undecided.
std::optional<Result<void>> outcomeOfStart(const ServiceState& state);

}  // namespace platform
