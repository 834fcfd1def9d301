// Fuzzes tables: each complete group with the port is visited once, and nothing outside the table is read.
#include <cstdlib>
#include <vector>

#include "platform/sockets/pcblist.h"

// The first byte chooses the layout, the next two the port, the rest is the table.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace platform;
  if (size < 3) return 0;
  const auto protocol = (bytes[0] & 1) != 0 ? SocketProtocol::tcp : SocketProtocol::udp;
  const auto release = (bytes[0] & 2) != 0 ? SocketTableRelease::sinceMacOS13 : SocketTableRelease::beforeMacOS13;
  const auto port = static_cast<std::uint16_t>(bytes[1] << 8 | bytes[2]);
  // A block of exactly this size, so that the sanitizer detects overruns.
  const std::vector<std::uint8_t> table(bytes + 3, bytes + size);

  const std::size_t sizes[] = {384, 592, 408, 616};
  const std::size_t group = sizes[bytes[0] & 3];
  std::size_t expected = 0;
  for (std::size_t index = 0; 24 + (index + 1) * group <= table.size(); ++index) {
    const auto* start = table.data() + 24 + index * group;
    if (start[18] == bytes[1] && start[19] == bytes[2]) ++expected;
  }
  std::size_t visited = 0;
  visitSocketTable(table, protocol, release, port, [&](const SocketEntry& entry) {
    if (entry.localPort != port || entry.identity > UINT32_MAX) std::abort();
    ++visited;
    return true;
  });
  if (visited != expected) std::abort();
  return 0;
}
