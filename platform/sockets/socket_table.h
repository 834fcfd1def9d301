// The sockets of this machine and their owners. Any thread.
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
  /// Network byte order. An IPv4 address is in the last four bytes.
  std::array<std::uint8_t, 16> localAddress{};
  std::uint64_t identity = 0;      ///< leads to the owner: the inode on Linux, the PID on macOS
  std::uint32_t userID = 0;        ///< user of the socket; that user's processes are searched first; 0 on macOS
  std::uint64_t controlGroup = 0;  ///< Linux: ID of the control group it was made in; 0 if unknown
};

/// One end of a connection.
struct SocketEnd {
  std::span<const std::uint8_t> address;  ///< network byte order, 4 or 16 bytes
  std::uint16_t port = 0;                 ///< host byte order
  std::uint32_t scope = 0;                ///< interface index of a link-local IPv6 address; 0 for none
};

/// Calls `visit` for the sockets bound to a local port (host byte order), in the order of the system's table, until it
/// returns false.
/// - Sockets that no longer belong to a process are left out, if the system distinguishes them (Linux).
/// - With `onlyIPv6`, sockets that cannot take part in IPv6 may be left out.
/// - Only the caller's network namespace is visible.
/// - If the table cannot be read, no sockets are visited.
/// - It takes milliseconds on a large machine.
void visitSockets(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6,
                  const std::function<bool(const SocketEntry&)>& visit);

/// The socket that is connected from one end to the other. Both ends have the same family. Absent if there is none or
/// the system has no such query (macOS). Takes microseconds.
std::optional<SocketEntry> connectedSocket(SocketProtocol protocol, const SocketEnd& local, const SocketEnd& remote);

/// A TCP connection from this local end to the remote end of a socket found recently. It is as good as the first socket
/// that visitSockets() visits, because connections have no fixed order. Absent if there is no such connection, if a
/// socket listens at the local end, because listeners come first, and on macOS. Takes microseconds.
std::optional<SocketEntry> likelySocket(const SocketEnd& local);

/// A process that holds the socket at this moment. Searches the recently found owners and the socket's control group,
/// for a fraction of a millisecond; absent if that is not enough. On macOS: the process that last used the socket.
std::optional<std::int32_t> likelySocketOwner(const SocketEntry& socket);

/// Searches all processes once for the owners of all these sockets. Takes up to a second on a large machine.
///
/// Calls `found` with the index of a socket and a process that held it after the call began: on Linux preferably one of
/// the socket's user, on macOS the one that last used it according to the table. `found` returns whether it accepts the
/// process. If not, it may be called for the same socket again, with another process. A socket that is passed between
/// processes during the search may be missed.
void findSocketOwners(std::span<const SocketEntry> sockets,
                      const std::function<bool(std::size_t index, std::int32_t pid)>& found);

/// Whether a process holds the socket at this moment; others may hold it too. On macOS: whether it last used the socket
/// according to the table.
bool holdsSocket(std::int32_t pid, const SocketEntry& socket);

/// The same, but looks only where the socket was last seen, which takes microseconds; false if it is not there.
bool seemsToHoldSocket(std::int32_t pid, const SocketEntry& socket);

}  // namespace platform
