// Remembers the application that was admitted last, and launches it again.
#include "platform/application/application.h"

#include <systemd/sd-daemon.h>
#include <systemd/sd-login.h>

#include <cstdlib>
#include <map>

#include "platform/application/linux/environment.h"
#include "platform/application/linux/launch.h"
#include "platform/application/linux/transient_service.h"
#include "platform/dispatch/dispatch.h"
#include "platform/process/linux/proc_files.h"

namespace platform {

namespace {

// Maximum number of concurrent launches per user. Each one occupies a thread of the global queue and may wait for
// things that the user can delay.
constexpr int maximumLaunches = 8;

/// Number of launches in progress for each user. Main thread.
std::map<uid_t, int>& launchesUnderWay() {
  static std::map<uid_t, int> launches;
  return launches;
}

/// The identity of the application that was admitted last; absent if it is not known. Main thread.
std::optional<ApplicationIdentity>& notedIdentity() {
  static std::optional<ApplicationIdentity> identity;
  return identity;
}

/// Whether the user is logged in according to logind (sd_uid_get_state(3)); false without logind.
bool hasSession(uid_t user) {
  char* state = nullptr;
  if (sd_uid_get_state(user, &state) < 0) return false;
  std::string text(state);
  std::free(state);
  return text == "opening" || text == "online" || text == "active";
}

std::optional<ApplicationIdentity> identityOf(const Process& process, std::uint32_t userID) {
  auto environment = readProcessFile(process.pid(), "environ");
  auto status = readProcessFile(process.pid(), "status");
  if (!environment || !status) return std::nullopt;
  auto users = numbersOf(*status, "Uid:"), groups = numbersOf(*status, "Gid:");
  // Real, effective, saved and file-system IDs.
  if (users != std::vector(4, userID) || groups.size() != 4) return std::nullopt;
  // The real group: a set-group-ID executable sets the effective one again.
  ApplicationIdentity identity{.user = userID,
                               .group = groups[0],
                               .groups = numbersOf(*status, "Groups:"),
                               .environment = applicationEnvironment(*environment),
                               .hadSession = hasSession(userID)};
  // What was read belongs to this process only if the process is still alive.
  if (process.hasEnded()) return std::nullopt;
  return identity;
}

Result<void> launch(const std::string& identifier, const std::string& path, const std::vector<std::string>& arguments,
                    const ApplicationIdentity& identity) {
  if (identity.hadSession && !hasSession(identity.user)) return Failure(0, "its user has logged out");
  // Where systemd runs, process 1 starts the application, because a child of this service would inherit the service's
  // confinement.
  return sd_booted() > 0 ? startTransientService(identifier, path, arguments, identity)
                         : launchApplication(path, arguments, identity);
}

}  // namespace

void noteRunningApplication(const Process& process, std::uint32_t userID) {
  notedIdentity() = identityOf(process, userID);
}

void openApplication(const std::string& identifier, const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(const Result<void>& launched)> completion) {
  auto refuse = [&completion](const char* reason) {
    dispatch::async(dispatch::mainQueue(), [completion, reason] { completion(Failure(0, reason)); });
  };
  auto identity = notedIdentity();
  if (!identity) return refuse("the user it ran as is not known");
  auto& launches = launchesUnderWay()[identity->user];
  if (launches >= maximumLaunches) return refuse("too many launches for this user are under way");
  ++launches;
  auto launchAndReport = [identifier, path, arguments, identity, completion = std::move(completion)] {
    auto launched = launch(identifier, path, arguments, *identity);
    dispatch::async(dispatch::mainQueue(), [completion, launched = std::move(launched), user = identity->user] {
      if (--launchesUnderWay()[user] == 0) launchesUnderWay().erase(user);
      completion(launched);
    });
  };
  // Reading the user database and starting a program may take long.
  dispatch::async(dispatch::globalQueue(), std::move(launchAndReport));
}

}  // namespace platform
