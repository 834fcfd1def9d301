#include "platform/sockets/pcblist.h"

#include <algorithm>
#include <cstring>

namespace platform {

namespace {

// A header, then one group of records for each socket, all of the same size.
constexpr std::size_t tableHeader = 24;
constexpr std::size_t tcpControlBlock = 208;  // last record of a group; TCP only

// Offsets in a group.
constexpr std::size_t localPortOffset = 18;     // network byte order
constexpr std::size_t versionFlagsOffset = 44;  // flags for the families that the socket takes part in
constexpr std::size_t localAddressOffset = 64;
constexpr std::size_t lastProcessOffset = 172;  // host byte order

constexpr std::uint8_t ipv4Flag = 1, ipv6Flag = 2;

std::size_t groupSize(SocketProtocol protocol, SocketTableRelease release) {
  const std::size_t common = release == SocketTableRelease::beforeMacOS13 ? 384 : 408;
  return protocol == SocketProtocol::tcp ? common + tcpControlBlock : common;
}

}  // namespace

void visitSocketTable(std::span<const std::uint8_t> table, SocketProtocol protocol, SocketTableRelease release,
                      std::uint16_t port, const std::function<bool(const SocketEntry&)>& visit) {
  const std::size_t size = groupSize(protocol, release);
  for (std::size_t offset = tableHeader; offset + size <= table.size(); offset += size) {
    const auto group = table.subspan(offset, size);
    SocketEntry entry;
    entry.localPort = static_cast<std::uint16_t>(group[localPortOffset] << 8 | group[localPortOffset + 1]);
    if (entry.localPort != port) continue;
    entry.isIPv4 = (group[versionFlagsOffset] & ipv4Flag) != 0;
    entry.isIPv6 = (group[versionFlagsOffset] & ipv6Flag) != 0;
    const auto address = group.subspan(localAddressOffset, entry.localAddress.size());
    std::copy(address.begin(), address.end(), entry.localAddress.begin());
    std::uint32_t process;
    std::memcpy(&process, group.data() + lastProcessOffset, sizeof process);
    entry.identity = process;
    if (!visit(entry)) return;
  }
}

}  // namespace platform
