// The facts that unit tests steer in place of the machine's: signatures, processes, sockets, the system log.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/code_signing.h"
#include "platform/sockets.h"

namespace platform::fake {

struct Machine {
  code_signing::Status senderStatus = code_signing::success;
  std::map<std::string, code_signing::Status> files;  ///< others are missing
  /// What was asked of code signing, as path (empty: the sender) and requirement.
  std::vector<std::pair<std::string, std::string>> checks;

  std::map<std::int32_t, std::string> executables;
  std::map<std::int32_t, std::uint32_t> users;  ///< effective
  std::vector<std::int32_t> killed;

  std::vector<std::pair<SocketProtocol, SocketEntry>> sockets;
  std::map<std::uint64_t, std::int32_t> owners;  ///< by the sockets' identity
  std::vector<std::uint64_t> ownersAsked;

  std::vector<std::string> systemLog;
};

/// The machine that the code under test sees. A test begins by assigning a fresh one.
Machine& machine();

}  // namespace platform::fake
