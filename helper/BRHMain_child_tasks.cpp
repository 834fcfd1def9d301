// The children: the DHCP server and spindump.
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
constexpr std::chrono::seconds terminationTime(1);  // before a child that was told to end is killed
constexpr std::chrono::seconds killTime(5);         // before one that waits for a silent file system is left to itself

/// The text of a member, empty when it cannot be an argument of a program.
std::string argument(const json::object& request, std::string_view key) {
  auto text = platform::textMember(request, key);
  return text.find('\0') == text.npos ? std::string(text) : "";
}

/// Opens the file that a child appends its output to. Empty unless it is a regular file that belongs to the client's
/// user and has no other name: root is not to be led to another's file, nor to wait at a FIFO. Files of the kernel, who
/// judges the writer by the opener, mostly have no end to move to.
platform::FileDescriptor openOutput(const std::string& path, std::uint32_t user) {
  auto file = platform::openForAppending(path);
  struct stat status;
  bool isSafe = file && fstat(file->get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == user &&
                status.st_nlink == 1 && lseek(file->get(), 0, SEEK_END) >= 0;
  return isSafe ? std::move(*file) : platform::FileDescriptor();
}

}  // namespace

json::object BRHMain::startDHCP(const json::object& request, const platform::ipc::Connection& client) {
  auto config = argument(request, "config"), lease = argument(request, "lease"), dhcpd = argument(request, "dhcpd"),
       interface = argument(request, "interface"), outputPath = argument(request, "output"),
       pidFile = argument(request, "pid");
  if (config.empty() || lease.empty() || dhcpd.empty() || interface.empty() || outputPath.empty() || pidFile.empty()) {
    return BRHError("invalid dhcpd arguments");
  }

  auto bundle = BRHBundleOfExecutable(platform::resolvedPath(_mainAppImagePath.value_or("")));
  auto candidate = platform::resolvedPath(dhcpd);
  if (bundle.empty() || candidate != bundle + "/Contents/Applications/brimo-dhcpd" ||
      !BRHValidateStaticCode(candidate, FrameworkRequirement)) {
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
      candidate, std::vector<std::string>{"-4", "-f", "-d", "-cf", config, "-lf", lease, "-pf", pidFile, interface},
      std::move(output));
  _dhcpdTask->setTerminationHandler([this, task = _dhcpdTask.get()] { dhcpdCompleted(task); });
  if (auto launched = _dhcpdTask->launch(); !launched) {
    const std::string reason = launched.error().what();
    HX_log("Failed to start dhcpd: {}", reason);
    _dhcpdTask.reset();
    return BRHError(reason.empty() ? "failed to start dhcpd" : reason);
  }
  HX_log("dhcpd started");
  return {{"result", "success"}, {"pid", _dhcpdTask->processIdentifier()}};
}

void BRHMain::killOwnerOfDHCPPort() {
  const auto anyAddress = BRSockAddrMakeIPv4({0, 0, 0, 0}, dhcpServerPort);
  auto owner = BRUDPSocketOwner(anyAddress);
  if (!owner || owner->pid == getpid()) return;
  HX_log("Port 67 is already used: {}, kill", owner->description());
  // Its number may have gone to another process by now; a process that is held and then found to be the owner is it.
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
      // Its files are where a client says, and a file system of a user's that does not answer keeps it from ending.
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
    const std::string reason = launched.error().what();
    HX_log("Failed to start spindump: {}", reason);
    _spindumpTask.reset();
    return BRHError(reason.empty() ? "failed to start spindump" : reason);
  }
  HX_log("spindump started");
  return BRHSuccess();
}

void BRHMain::spindumpCompleted() {
  HX_log("spindump completed");
  _spindumpTask.reset();
}
