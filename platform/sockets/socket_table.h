// The machine's sockets, and who holds them.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace platform {

enum class SocketProtocol { tcp, udp };

/// One socket of the system's socket table.
struct SocketEntry {
  std::uint16_t localPort = 0;  ///< host byte order
  bool isIPv4 = false;          ///< takes part in IPv4; a dual-stack socket takes part in both
  bool isIPv6 = false;
  /// Network byte order. IPv4 sockets hold theirs in the last four bytes.
  std::array<std::uint8_t, 16> localAddress{};
  std::uint64_t identity = 0;      ///< what its owner is known by: its inode on Linux, its process on macOS
  std::uint32_t userID = 0;        ///< of the socket, whose processes are looked at first; 0 on macOS
  std::uint64_t controlGroup = 0;  ///< Linux: ID of the one that it was made in; 0: not told
};

/// An end of a connection.
struct SocketEnd {
  std::span<const std::uint8_t> address;  ///< network byte order, 4 or 16 bytes
  std::uint16_t port = 0;                 ///< host byte order
  std::uint32_t scope = 0;                ///< index of the interface that an IPv6 address belongs to; 0: none
};

/// Calls `visit` for the sockets bound to a local port (host byte order), in the order of the system's table, until it
/// returns false. Sockets that belong to no process any more are left out where the system tells them from others
/// (Linux). With `onlyIPv6`, those that cannot take part in IPv6 may be left out. Sees the network namespace of the
/// caller. Takes milliseconds on a large machine. Any thread; failures show no sockets.
void visitSockets(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6,
                  const std::function<bool(const SocketEntry&)>& visit);

/// The socket that is connected from one end to the other, in microseconds. Both ends are of one family. Absent when
/// there is none or the system cannot be asked so (macOS). Any thread.
std::optional<SocketEntry> connectedSocket(SocketProtocol protocol, const SocketEnd& local, const SocketEnd& remote);

/// A TCP socket that visitSockets() may show first for a local address, in microseconds: one that is connected to where
/// those were that visitSockets() stopped at lately. Absent when that cannot be told at once. Any thread.
std::optional<SocketEntry> likelySocket(const SocketEnd& local);

/// A process that holds the socket at this moment, if that can be told in a fraction of a millisecond from where the
/// last ones were found. Any thread.
std::optional<std::int32_t> likelySocketOwner(const SocketEntry& socket);

/// Looks through the machine's processes once, for the owners of all these sockets. Calls `found` with the index of a
/// socket and a process that was seen to hold it after the call began, preferably one of the socket's own user; on
/// macOS the one that used it last, as the table said. `found` is called once for a socket at most, and not for one
/// that is handed from process to process meanwhile. Takes up to a second on a large machine. Any thread.
void findSocketOwners(std::span<const SocketEntry> sockets,
                      const std::function<bool(std::size_t index, std::int32_t pid)>& found);

/// Whether a process holds the socket at this moment, as others may, too; on macOS whether it is the one that used it
/// last, as the table said. Any thread.
bool holdsSocket(std::int32_t pid, const SocketEntry& socket);

/// The same, if that can be told in microseconds from where the socket was seen last; else false. Any thread.
bool seemsToHoldSocket(std::int32_t pid, const SocketEntry& socket);

}  // namespace platform
