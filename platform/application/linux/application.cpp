// The application that was admitted last, and its launch.
#include "platform/application/application.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <map>
#include <span>
#include <sstream>

#include "platform/application/linux/environment.h"
#include "platform/application/linux/launch.h"
#include "platform/base/file_io.h"
#include "platform/dispatch/dispatch.h"

namespace platform {

namespace {

constexpr std::size_t maximumSize = 1'048'576, pieceSize = 16'384;  // of what is read of a file below /proc

// Of one user at a time: each takes a thread of the global queue while it waits for what the user can hold up.
constexpr int maximumLaunches = 8;

/// How many launches are under way for each user, on the main thread.
std::map<uid_t, int>& launchesUnderWay() {
  static std::map<uid_t, int> launches;
  return launches;
}

/// On the main thread.
std::optional<ApplicationIdentity>& notedIdentity() {
  static std::optional<ApplicationIdentity> identity;
  return identity;
}

/// The beginning of a file below /proc/PID; absent when it cannot be read.
std::optional<std::string> readProcessFile(std::int32_t pid, const char* name) {
  FileDescriptor file(open(fmt::format("/proc/{}/{}", pid, name).c_str(), O_RDONLY | O_CLOEXEC));
  std::string content;
  // In pieces: few files are nearly as large as is allowed.
  for (std::size_t filled = 0; filled < maximumSize;) {
    content.resize(filled + pieceSize);
    auto length = readInto(file.get(), std::span(content).subspan(filled));
    if (!length) return std::nullopt;
    filled += *length;
    content.resize(filled);
    if (*length < pieceSize) break;
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
                               .environment = applicationEnvironment(*environment)};
  // What was read is true of the process only if it lives.
  if (process.hasEnded()) return std::nullopt;
  return identity;
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
  if (!identity) return refuse("it is not known as whom it ran");
  auto& launches = launchesUnderWay()[identity->user];
  if (launches >= maximumLaunches) return refuse("too many launches for this user are under way");
  ++launches;
  auto launch = [identifier, path, arguments, identity, completion = std::move(completion)] {
    auto launched = launchApplication(identifier, path, arguments, *identity);
    dispatch::async(dispatch::mainQueue(), [completion, launched, user = identity->user] {
      if (--launchesUnderWay()[user] == 0) launchesUnderWay().erase(user);
      completion(launched);
    });
  };
  // Reading the user database and starting a program may take their time.
  dispatch::async(dispatch::globalQueue(), std::move(launch));
}

}  // namespace platform
