// Having systemd, where it is process 1, start an application.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/application/linux/launch.h"
#include "platform/base/result.h"

namespace platform {

/// Has process 1 start the executable at `path` as a transient service among its user's processes: as the identity
/// says, with its environment as in completeEnvironment() and the limits of its user (PAM), in the home folder or else
/// "/". Nothing is handed on of this process's limits, sandbox, namespaces and control group. The service lasts as long
/// as any process in it, and ends with user@UID.service. `path` is in bytes that are UTF-8, or it fails. `identifier`,
/// the application's, becomes part of the service's name. Blocks until the application runs, at most half a minute. Any
/// thread.
Result<void> startTransientService(const std::string& identifier, const std::string& path,
                                   const std::vector<std::string>& arguments, const ApplicationIdentity& identity);

/// How far systemd has got with a service (org.freedesktop.systemd1(5)).
struct ServiceState {
  bool hasJob;              ///< its start is still to come or under way
  std::string activeState;  ///< as systemd writes it
  bool runsApplication;     ///< its main process has executed what it was to
  std::string result;       ///< "success", or how it failed
  std::int32_t exitStatus;  ///< of the main process
};

/// What has become of the start; absent while that is open.
std::optional<Result<void>> outcomeOfStart(const ServiceState& state);

}  // namespace platform
