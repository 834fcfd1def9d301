// The application that was admitted last, and its launch.
#include "platform/application/application.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "platform/application/linux/environment.h"
#include "platform/application/linux/launch.h"
#include "platform/application/linux/transient_service.h"
#include "platform/dispatch/dispatch.h"

namespace platform {

namespace {

constexpr std::size_t maximumSize = 1'048'576;  // of what is read of a file below /proc

/// On the main thread.
std::optional<ApplicationIdentity>& notedIdentity() {
  static std::optional<ApplicationIdentity> identity;
  return identity;
}

/// The beginning of a file below /proc/PID; absent when it cannot be read.
std::optional<std::string> readProcessFile(std::int32_t pid, const char* name) {
  FileDescriptor file(open(fmt::format("/proc/{}/{}", pid, name).c_str(), O_RDONLY | O_CLOEXEC));
  std::string content;
  std::array<char, 16'384> piece;
  while (content.size() < maximumSize) {
    auto length = read(file.get(), piece.data(), piece.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return std::nullopt;
    if (length == 0) break;
    content.append(piece.data(), static_cast<std::size_t>(length));
  }
  return content;
}

/// The numbers behind a key of /proc/PID/status (proc(5)).
std::vector<std::uint32_t> numbersOf(const std::string& status, const std::string& key) {
  std::vector<std::uint32_t> numbers;
  std::istringstream lines(status);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(key)) continue;
    std::istringstream words(line.substr(key.size()));
    for (std::uint32_t number; words >> number;) numbers.push_back(number);
  }
  return numbers;
}

/// Whether the user is logged in, as logind knows (sd_uid_get_state(3)); false where there is no logind.
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
  // Real, effective, saved and of the file system.
  if (users != std::vector(4, userID) || groups.size() != 4) return std::nullopt;
  // The real group: an executable that sets its group does so again.
  ApplicationIdentity identity{.user = userID,
                               .group = groups[0],
                               .groups = numbersOf(*status, "Groups:"),
                               .environment = applicationEnvironment(*environment),
                               .hadSession = hasSession(userID)};
  // What was read is true of the process only if it lives.
  if (process.hasEnded()) return std::nullopt;
  return identity;
}

/// Absent on success, else what went wrong.
std::optional<std::string> launch(const std::string& path, const std::vector<std::string>& arguments,
                                  const std::optional<ApplicationIdentity>& identity) {
  if (!identity) return "it is not known as whom it ran";
  if (identity->hadSession && !hasSession(identity->user)) return "its user has logged out";
  // Where systemd runs, process 1 starts it or nobody: a child of this service would inherit its confinement.
  return sd_booted() > 0 ? startTransientService(path, arguments, *identity)
                         : launchApplication(path, arguments, *identity);
}

}  // namespace

void noteRunningApplication(const Process& process, std::uint32_t userID) {
  notedIdentity() = identityOf(process, userID);
}

void openApplication(const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(std::optional<std::string> error)> completion) {
  // Reading the user database and starting a program may take their time.
  dispatch::async(dispatch::globalQueue(),
                  [path, arguments, identity = notedIdentity(), completion = std::move(completion)] {
                    auto error = launch(path, arguments, identity);
                    dispatch::async(dispatch::mainQueue(), [completion, error] { completion(error); });
                  });
}

}  // namespace platform
