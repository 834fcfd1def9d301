// The socket tables of macOS: what sysctl(3) returns for "net.inet.tcp.pcblist_n" and "net.inet.udp.pcblist_n", as
// bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "platform/sockets/socket_table.h"

namespace platform {

/// The release that made a table, which decides how far apart its sockets lie.
enum class SocketTableRelease { beforeMacOS13, sinceMacOS13 };

/// Calls `visit` for the sockets of a table that are bound to a local port (host byte order), in the table's order,
/// until it returns false. Their identity is the ID of the process that last used them, as the table says, 0 for none.
/// Fields are read at fixed places; what the table holds only a part of is not read.
void visitSocketTable(std::span<const std::uint8_t> table, SocketProtocol protocol, SocketTableRelease release,
                      std::uint16_t port, const std::function<bool(const SocketEntry&)>& visit);

}  // namespace platform
