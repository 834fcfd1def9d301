#include "helper/probes/socket_owner_lookup.h"

#include <algorithm>

#include "platform/base/utf8.h"
#include "platform/process/process.h"
#include "platform/sockets/socket_table.h"

namespace {

using platform::SocketEntry;

bool isZero(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](auto byte) { return byte == 0; });
}

/// The rule by which a socket answers to an address.
bool matches(const SocketEntry& socket, const BRSockAddr& query) {
  if (socket.localPort != BRSockAddrPort(query)) return false;
  auto wanted = BRSockAddrAddress(query);
  std::span<const std::uint8_t> bound = socket.localAddress;
  if (BRSockAddrFamily(query) == BRFamilyIPv4) {
    // A dual-stack socket answers to IPv4 with the last four bytes.
    if (!socket.isIPv4) return false;
    bound = bound.last(4);
  } else if (!socket.isIPv6) {
    return false;
  }
  return isZero(wanted) || isZero(bound) || std::equal(wanted.begin(), wanted.end(), bound.begin());
}

std::optional<BRProcess> socketOwner(platform::SocketProtocol protocol, const BRSockAddr& query) {
  auto family = BRSockAddrFamily(query);
  if (family != BRFamilyIPv4 && family != BRFamilyIPv6) return std::nullopt;

  std::optional<SocketEntry> found;
  platform::visitSockets(protocol, BRSockAddrPort(query), family == BRFamilyIPv6, [&](const SocketEntry& socket) {
    if (matches(socket, query)) found = socket;
    return !found;
  });
  auto pid = found ? platform::socketOwner(*found) : std::nullopt;
  if (!pid || *pid == 0) return std::nullopt;
  auto path = platform::executablePath(*pid);
  // The path is that of the owner only if the process is still the same. Another may hold the socket, too.
  if (!path || !platform::holdsSocket(*pid, *found)) return std::nullopt;
  if (!platform::isUTF8(*path)) path.reset();
  return BRProcess{.pid = *pid, .processPath = std::move(path)};
}

}  // namespace

std::optional<BRProcess> BRTCPSocketOwner(const BRSockAddr& address) {
  return socketOwner(platform::SocketProtocol::tcp, address);
}

std::optional<BRProcess> BRUDPSocketOwner(const BRSockAddr& address) {
  return socketOwner(platform::SocketProtocol::udp, address);
}
