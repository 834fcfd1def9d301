// Which process owns the socket that is bound to a local address.
#pragma once

#include <functional>
#include <optional>

#include "helper/probes/BRProcess.h"
#include "helper/probes/BRSockAddrObject.h"
#include "platform/sockets/socket_table.h"

/// The owner of the first socket in the system's table that the address matches: same port, same family, and the same
/// address unless either is unspecified. Absent when there is no such socket, or its process or the process's
/// executable cannot be told. May take up to seconds. Any thread.
std::optional<BRProcess> BRTCPSocketOwner(const BRSockAddr& address);
std::optional<BRProcess> BRUDPSocketOwner(const BRSockAddr& address);

struct BRSocketQuestion {
  platform::SocketProtocol protocol;
  BRSockAddr address;
  /// The other end: the socket that is connected to it comes before the others. Of use if it is of the address's
  /// family.
  std::optional<BRSockAddr> remote;
};

/// Asks the same without waiting: answers before it returns where that takes a fraction of a millisecond, and on the
/// global queue otherwise. One pass over the machine's processes serves all questions that wait when it begins.
/// `answer` is called once. Any thread.
void BRAskSocketOwner(const BRSocketQuestion& question, std::function<void(const std::optional<BRProcess>&)> answer);
