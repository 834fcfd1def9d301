#include "platform/ipc/linux/sender.h"

#include <sys/socket.h>

#include <cerrno>

#include "platform/code_signing/linux/running_image.h"
#include "platform/process/linux/pidfd.h"
#include "platform/process/linux/proc_files.h"
#include "platform/process/linux/process_folder.h"

namespace platform::ipc {

namespace {

constexpr int peerPidfdOption = 77;  // SO_PEERPIDFD, since Linux 6.5, missing from Debian 12's headers

}  // namespace

Sender::Sender(int socket) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) return;
  process_ = Process(credentials.pid, {});
  uid_ = credentials.uid;
  gid_ = credentials.gid;
}

bool Sender::takePidfd(int socket) {
  int descriptor = -1;
  socklen_t length = sizeof descriptor;
  if (getsockopt(socket, SOL_SOCKET, peerPidfdOption, &descriptor, &length) == 0) {
    process_ = Process(pid(), FileDescriptor(descriptor));
  } else if (errno == ENOPROTOOPT) {
    // Before Linux 6.5, the PID may have been reused meanwhile. This is safe: the new process is then the one that is
    // checked, and Connection accepts only data that the checked process wrote.
    process_ = Process(pid(), FileDescriptor(pidfd_open(pid(), 0)));
  }
  return process_.handle() >= 0;
}

bool Sender::isAlive() const {
  return process_.handle() >= 0 && !process_.hasEnded();
}

bool Sender::wasGivenGroup(gid_t group) const {
  if (gid_ != group) return false;
  if (uid_ == 0) return true;
  // Real, effective, saved and file-system IDs.
  auto groups = numbersOf(readProcessFile(pid(), "status").value_or(""), "Gid:");
  return groups.size() == 4 && groups[0] != group && isAlive();
}

bool Sender::sharesNamespaces() const {
  ProcessFolder peer(pid());
  return peer.sharesNamespace("user") && peer.sharesNamespace("pid") && isAlive();
}

Result<void> checkSender(const Sender& sender, const std::string& requirement) {
  auto checked = code_signing::checkRunningImage(sender.pid(), requirement);
  // The result belongs to the sender only if it is still alive.
  if (!sender.isAlive()) return Failure(code_signing::noSuchCode, "the process has ended");
  if (checked) return checked;
  const bool isMissing = checked.error().number == code_signing::noSuchFile;
  return Failure(isMissing ? code_signing::noSuchCode : code_signing::requirementFailed, checked.error().what());
}

}  // namespace platform::ipc
