// The child processes: the DHCP server and spindump.
#include <sys/stat.h>
#include <unistd.h>

#include <boost/json.hpp>

#include "build_constants.h"
#include "helper/BRHMain.h"
#include "helper/admission.h"
#include "helper/probes/socket_owner_lookup.h"
#include "helper/reply.h"
#include "platform/base/json_text.h"
#include "platform/process/named_files.h"

namespace json = boost::json;

namespace {

constexpr std::uint16_t dhcpServerPort = 67;
constexpr std::chrono::seconds terminationTime(1);  // between SIGTERM and SIGKILL
constexpr std::chrono::seconds killTime(5);         // after SIGKILL, before the helper gives the server up

/// A member's text. Empty if there is none, or if it contains a NUL, which no program argument can contain.
std::string argument(const json::object& request, std::string_view key) {
  auto text = platform::textMember(request, key);
  return text.find('\0') == text.npos ? std::string(text) : "";
}

/// Opens the file that a child appends its output to. Empty unless the file is regular, belongs to the client's user
/// and has a single link. So a client can neither make root write to another user's file nor make the child wait at a
/// FIFO. Most files of /proc and /sys fail lseek(SEEK_END) and are refused: a write to them has the rights of the
/// process that opened them, here root's.
platform::FileDescriptor openOutput(const std::string& path, std::uint32_t user) {
  auto file = platform::openForAppending(path);
  struct stat status;
  bool isSafe = file && fstat(file->get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == user &&
                status.st_nlink == 1 && lseek(file->get(), 0, SEEK_END) >= 0;
  return isSafe ? std::move(*file) : platform::FileDescriptor();
}

/// Resolves the path of a DHCP server. Empty unless it is the one in the application's bundle, signed by the team.
std::string resolveDHCPServer(const std::string& path, const std::string& application) {
  auto bundle = BRHBundleOfExecutable(platform::resolvedPath(application));
  auto resolved = platform::resolvedPath(path);
  bool isValid = !bundle.empty() && resolved == bundle + "/Contents/Applications/brimo-dhcpd" &&
                 BRHValidateStaticCode(resolved, FrameworkRequirement);
  return isValid ? resolved : "";
}

/// Logs why a program could not be started and returns the reply that says so.
json::object launchError(const char* program, const platform::Failure& failure) {
  const std::string reason = failure.what();
  HX_log<BRHMain>("Failed to start {}: {}", program, reason);
  return BRHError(reason.empty() ? fmt::format("failed to start {}", program) : reason);
}

}  // namespace

json::object BRHMain::startDHCP(const json::object& request, const platform::ipc::Connection& client) {
  auto config = argument(request, "config"), lease = argument(request, "lease"), dhcpd = argument(request, "dhcpd"),
       interface = argument(request, "interface"), outputPath = argument(request, "output"),
       pidFile = argument(request, "pid");
  if (config.empty() || lease.empty() || dhcpd.empty() || interface.empty() || outputPath.empty() || pidFile.empty()) {
    return BRHError("invalid dhcpd arguments");
  }

  auto executable = resolveDHCPServer(dhcpd, _mainAppImagePath.value_or(""));
  if (executable.empty()) {
    HX_log("Reject invalid dhcpd executable at {}", dhcpd);
    return BRHError("invalid dhcpd executable");
  }
  if (_dhcpdTask) {
    HX_log("Terminate previous dhcpd");
    stopDHCP();
  }
  killOwnerOfDHCPPort();
  HX_log("Start dhcpd");
  if (_dhcpdTask) {
    HX_log("Previous dhcpd task is still present, refusing to start another");
    return BRHError("dhcpd is already running");
  }
  auto output = openOutput(outputPath, client.peerUserID());
  if (!output) return BRHError("invalid dhcpd output path");
  _dhcpdTask = std::make_shared<platform::ChildTask>(
      executable, std::vector<std::string>{"-4", "-f", "-d", "-cf", config, "-lf", lease, "-pf", pidFile, interface},
      std::move(output));
  _dhcpdTask->setTerminationHandler([this, task = _dhcpdTask.get()] { dhcpdCompleted(task); });
  if (auto launched = _dhcpdTask->launch(); !launched) {
    _dhcpdTask.reset();
    return launchError("dhcpd", launched.error());
  }
  HX_log("dhcpd started");
  return {{"result", "success"}, {"pid", _dhcpdTask->processIdentifier()}};
}

void BRHMain::killOwnerOfDHCPPort() {
  const auto anyAddress = BRSockAddrMakeIPv4({0, 0, 0, 0}, dhcpServerPort);
  auto owner = BRUDPSocketOwner(anyAddress);
  if (!owner || owner->pid == getpid()) return;
  HX_log("Port 67 is already used: {}, kill", owner->description());
  // The PID may have been reused since the first look-up, so the owner is looked up again once a handle is held.
  auto process = platform::Process::find(owner->pid);
  if (process && BRUDPSocketOwner(anyAddress) == owner) process->kill();
}

void BRHMain::stopDHCP() {
  if (!_dhcpdTask) return;
  _dhcpdTask->setTerminationHandler({});
  if (_dhcpdTask->isRunning()) {
    _dhcpdTask->terminate();
    if (!_dhcpdTask->waitForExit(terminationTime)) {
      _dhcpdTask->kill();
      // A client chose the server's files. If they lie on a user's file system that does not answer, the server cannot
      // end.
      if (!_dhcpdTask->waitForExit(killTime)) HX_log("dhcpd does not end");
    }
  }
  _dhcpdTask.reset();
}

json::object BRHMain::stopAllDHCP(const json::object&, const platform::ipc::Connection&) {
  stopDHCP();
  platform::runShellCommand("killall -9 brimo-dhcpd");
  platform::runShellCommand("killall -9 brimo-ra");
  return BRHSuccess();
}

void BRHMain::dhcpdCompleted(const platform::ChildTask* task) {
  HX_log("dhcpd completed");
  if (task == _dhcpdTask.get()) _dhcpdTask.reset();
}

json::object BRHMain::startSpindump(const json::object& request, const platform::ipc::Connection& client) {
  auto path = argument(request, "path");
  if (path.empty()) return BRHError("invalid spindump path");
  if (_spindumpTask) return BRHSuccess();
  _spindumpTask = std::make_shared<platform::ChildTask>(
      "/usr/sbin/spindump", std::vector<std::string>{std::to_string(client.peerPID()), "-o", path});
  _spindumpTask->setTerminationHandler([this] { spindumpCompleted(); });
  if (auto launched = _spindumpTask->launch(); !launched) {
    _spindumpTask.reset();
    return launchError("spindump", launched.error());
  }
  HX_log("spindump started");
  return BRHSuccess();
}

void BRHMain::spindumpCompleted() {
  HX_log("spindump completed");
  _spindumpTask.reset();
}
