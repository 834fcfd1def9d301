#include "platform/fake/machine.h"

#include <fmt/format.h>

#include "platform/application/application.h"
#include "platform/dispatch/dispatch.h"
#include "platform/process/process.h"
#include "platform/system/clock.h"
#include "platform/system/system_log.h"

namespace platform {

namespace {

template <class Map, class Key>
auto find(const Map& map, const Key& key) -> std::optional<typename Map::mapped_type> {
  auto found = map.find(key);
  return found == map.end() ? std::nullopt : std::make_optional(found->second);
}

}  // namespace

fake::Machine& fake::machine() {
  static Machine machine;
  return machine;
}

namespace {

Result<void> resultOf(code_signing::Status status, const std::string& about) {
  if (status != code_signing::success) return Failure(status, fmt::format("{} has status {}", about, status));
  return {};
}

}  // namespace

Result<void> ipc::checkSender(const ipc::Sender&, const std::string& requirement) {
  fake::machine().checks.emplace_back("", requirement);
  return resultOf(fake::machine().senderStatus, "the sender");
}

Result<void> code_signing::checkFile(const std::string& path, const std::string& requirement) {
  fake::machine().checks.emplace_back(path, requirement);
  return resultOf(find(fake::machine().files, path).value_or(noSuchFile), path);
}

std::optional<std::string> executablePath(std::int32_t pid) {
  fake::machine().steps.push_back(fmt::format("path {}", pid));
  return find(fake::machine().executables, pid);
}

std::optional<std::uint32_t> effectiveUserID(std::int32_t pid) {
  fake::machine().steps.push_back(fmt::format("user {}", pid));
  return find(fake::machine().users, pid);
}

std::optional<Process> Process::find(std::int32_t pid) {
  fake::machine().steps.push_back(fmt::format("find {}", pid));
  if (!fake::machine().executables.contains(pid)) return std::nullopt;
  return Process(pid, {});
}

bool Process::hasEnded() const {
  return false;
}

void Process::kill() const {
  fake::machine().steps.push_back(fmt::format("kill {}", pid_));
  fake::machine().killed.push_back(pid_);
}

double continuousSeconds() {
  return std::exchange(fake::machine().continuousSeconds,
                       fake::machine().continuousSeconds + fake::machine().secondsPerReading);
}

void noteRunningApplication(const Process& process, std::uint32_t userID) {
  fake::machine().notedApplications.emplace_back(process.pid(), userID);
}

void openApplication(const std::string&, const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(const Result<void>&)> completion) {
  fake::machine().launches.emplace_back(path, arguments);
  dispatch::async(dispatch::mainQueue(), [completion = std::move(completion)] {
    const auto& error = fake::machine().launchError;
    completion(error ? Result<void>(*error) : Result<void>());
  });
}

Result<power::AssertionID> power::createAssertion(const std::string& type, const std::string& name) {
  if (auto status = find(fake::machine().assertionStatus, type)) return Failure(*status, "");
  static AssertionID last = 0;
  fake::machine().assertions[++last] = {type, name};
  return last;
}

Result<void> power::releaseAssertion(AssertionID assertion) {
  int status = fake::machine().assertions.erase(assertion) > 0 ? fake::machine().releaseStatus : -1;
  if (status != 0) return Failure(status, "");
  return {};
}

void visitSockets(SocketProtocol protocol, std::uint16_t, bool, const std::function<bool(const SocketEntry&)>& visit) {
  for (const auto& [kind, socket] : fake::machine().sockets) {
    if (kind == protocol && !visit(socket)) return;
  }
}

std::optional<SocketEntry> connectedSocket(SocketProtocol, const SocketEnd&, const SocketEnd& remote) {
  return find(fake::machine().connections, remote.port);
}

std::optional<SocketEntry> likelySocket(const SocketEnd&) {
  return fake::machine().likelySocket;
}

std::optional<std::int32_t> likelySocketOwner(const SocketEntry& socket) {
  return fake::machine().ownersAreKnown ? find(fake::machine().owners, socket.identity) : std::nullopt;
}

void findSocketOwners(std::span<const SocketEntry> sockets,
                      const std::function<bool(std::size_t index, std::int32_t pid)>& found) {
  fake::machine().passes.emplace_back();
  for (std::size_t index = 0; index < sockets.size(); ++index) {
    fake::machine().passes.back().push_back(sockets[index].identity);
    if (auto owner = find(fake::machine().owners, sockets[index].identity)) found(index, *owner);
  }
}

bool holdsSocket(std::int32_t pid, const SocketEntry& socket) {
  return fake::machine().ownersKeepSockets && find(fake::machine().owners, socket.identity) == pid;
}

bool seemsToHoldSocket(std::int32_t pid, const SocketEntry& socket) {
  return holdsSocket(pid, socket);
}

void systemLog(const std::string& line) {
  fake::machine().systemLog.push_back(line);
}

}  // namespace platform
