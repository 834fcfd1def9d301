// Which process owns the socket that is bound to a local address.
#pragma once

#include <optional>

#include "helper/probes/BRProcess.h"
#include "helper/probes/BRSockAddrObject.h"

/// The owner of the first socket in the system's table that the address matches: same port, same family, and the same
/// address unless either is unspecified. Absent when there is no such socket, or its process or the process's
/// executable cannot be told. Any thread.
std::optional<BRProcess> BRTCPSocketOwner(const BRSockAddr& address);
std::optional<BRProcess> BRUDPSocketOwner(const BRSockAddr& address);
