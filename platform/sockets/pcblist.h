// Parsing of macOS's socket tables: the bytes that sysctl(3) returns for "net.inet.tcp.pcblist_n" and
// "net.inet.udp.pcblist_n".
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "platform/sockets/socket_table.h"

namespace platform {

/// The macOS release that made a table. It determines how many bytes each socket occupies.
enum class SocketTableRelease { beforeMacOS13, sinceMacOS13 };

/// Calls `visit` for each socket that is bound to a local port (host byte order), in the table's order, until it
/// returns false. A socket's identity is the ID of the process that last used it, 0 for none. A socket whose records
/// are cut off at the end of the table is skipped.
void visitSocketTable(std::span<const std::uint8_t> table, SocketProtocol protocol, SocketTableRelease release,
                      std::uint16_t port, const std::function<bool(const SocketEntry&)>& visit);

}  // namespace platform
