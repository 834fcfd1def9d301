// Finds the process that owns the socket bound to a local address.
#pragma once

#include <functional>
#include <optional>

#include "helper/probes/BRProcess.h"
#include "helper/probes/BRSockAddrObject.h"
#include "platform/sockets/socket_table.h"

/// Returns the owner of the first socket in the system's table that matches the address: the port and the family are
/// equal, and the addresses are equal or one of them is unspecified. Absent when there is no such socket, or when its
/// process or the process's executable cannot be found. Can take seconds. Any thread.
std::optional<BRProcess> BRTCPSocketOwner(const BRSockAddr& address);
std::optional<BRProcess> BRUDPSocketOwner(const BRSockAddr& address);

struct BRSocketQuestion {
  platform::SocketProtocol protocol;
  BRSockAddr address;
  /// The remote end of the connection: a socket connected to it is preferred. Ignored when its family differs from that
  /// of `address`.
  std::optional<BRSockAddr> remote;
};

/// Finds the owner without blocking. Calls `answer` exactly once: before it returns, if a fraction of a millisecond is
/// enough, otherwise on the global queue. Each pass over all processes serves all questions that wait when the pass
/// begins. Any thread.
void BRAskSocketOwner(const BRSocketQuestion& question, std::function<void(const std::optional<BRProcess>&)> answer);
