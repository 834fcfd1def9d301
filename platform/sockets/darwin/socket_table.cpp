#include "platform/sockets/socket_table.h"

#include <sys/sysctl.h>

#include <cerrno>

#include "platform/sockets/pcblist.h"

namespace platform {

namespace {

/// The table with that name; empty on failure.
std::vector<std::uint8_t> readTable(const char* name) {
  // The kernel reports a size with some reserve, but many new sockets may exceed it before the second call.
  constexpr int attempts = 4;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    std::size_t size = 0;
    if (sysctlbyname(name, nullptr, &size, nullptr, 0) != 0) break;
    std::vector<std::uint8_t> table(size);
    if (sysctlbyname(name, table.data(), &size, nullptr, 0) == 0) {
      table.resize(size);
      return table;
    }
    if (errno != ENOMEM) break;
  }
  return {};
}

SocketTableRelease runningRelease() {
  if (__builtin_available(macOS 13.0, *)) return SocketTableRelease::sinceMacOS13;
  return SocketTableRelease::beforeMacOS13;
}

}  // namespace

void visitSockets(SocketProtocol protocol, std::uint16_t port, bool,
                  const std::function<bool(const SocketEntry&)>& visit) {
  static const auto release = runningRelease();
  const auto table = readTable(protocol == SocketProtocol::udp ? "net.inet.udp.pcblist_n" : "net.inet.tcp.pcblist_n");
  visitSocketTable(table, protocol, release, port, visit);
}

std::optional<SocketEntry> connectedSocket(SocketProtocol, const SocketEnd&, const SocketEnd&) {
  return std::nullopt;
}

std::optional<SocketEntry> likelySocket(const SocketEnd&) {
  return std::nullopt;
}

std::optional<std::int32_t> likelySocketOwner(const SocketEntry& socket) {
  if (socket.identity == 0) return std::nullopt;
  return static_cast<std::int32_t>(socket.identity);
}

void findSocketOwners(std::span<const SocketEntry> sockets,
                      const std::function<bool(std::size_t index, std::int32_t pid)>& found) {
  for (std::size_t index = 0; index < sockets.size(); ++index) {
    if (auto owner = likelySocketOwner(sockets[index])) found(index, *owner);
  }
}

bool holdsSocket(std::int32_t pid, const SocketEntry& socket) {
  return likelySocketOwner(socket) == pid;
}

bool seemsToHoldSocket(std::int32_t pid, const SocketEntry& socket) {
  return holdsSocket(pid, socket);
}

}  // namespace platform
