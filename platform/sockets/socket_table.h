// The machine's sockets, and who holds them.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

namespace platform {

enum class SocketProtocol { tcp, udp };

/// One socket of the system's socket table.
struct SocketEntry {
  std::uint16_t localPort = 0;  ///< host byte order
  bool isIPv4 = false;          ///< takes part in IPv4; a dual-stack socket takes part in both
  bool isIPv6 = false;
  /// Network byte order. IPv4 sockets hold theirs in the last four bytes.
  std::array<std::uint8_t, 16> localAddress{};
  std::uint64_t identity = 0;  ///< what socketOwner() knows the socket by: its inode on Linux, its process on macOS
  std::uint32_t userID = 0;    ///< owner of the socket, whose processes socketOwner() looks at first; 0 on macOS
};

/// Calls `visit` for the sockets bound to a local port (host byte order), in the order of the system's table, until it
/// returns false. Sockets that belong to no process any more are left out where the system tells them from others
/// (Linux). With `onlyIPv6`, those that cannot take part in IPv6 may be left out. Sees the network namespace of the
/// caller. Any thread; failures show no sockets.
void visitSockets(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6,
                  const std::function<bool(const SocketEntry&)>& visit);

/// A process that holds the socket at this moment, preferably one of the socket's own user; on macOS the one that used
/// it last, as the table said. Absent when there is none. Any thread.
std::optional<std::int32_t> socketOwner(const SocketEntry& socket);

/// Whether a process holds the socket at this moment, as others may, too; on macOS whether it is the one that used it
/// last, as the table said. Any thread.
bool holdsSocket(std::int32_t pid, const SocketEntry& socket);

}  // namespace platform
