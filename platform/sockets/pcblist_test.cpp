// Tests tables that are built byte by byte.
#include "platform/sockets/pcblist.h"

#include <gmock/gmock.h>

#include <cstring>
#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;
using enum SocketProtocol;
using enum SocketTableRelease;
using testing::ElementsAre;
using testing::IsEmpty;

struct Layout {
  SocketProtocol protocol;
  SocketTableRelease release;
  std::size_t size;
};
constexpr Layout layouts[] = {
    {udp, beforeMacOS13, 384}, {udp, sinceMacOS13, 408}, {tcp, beforeMacOS13, 592}, {tcp, sinceMacOS13, 616}};

constexpr std::uint8_t four = 1, six = 2;

/// A table of `count` groups with all fields zero; bytes outside the fields are 0xEE. The header that macOS repeats at
/// the end of its tables is missing.
Bytes table(const Layout& layout, std::size_t count) {
  Bytes bytes(24 + count * layout.size, 0xEE);
  for (std::size_t group = 24; group < bytes.size(); group += layout.size) {
    for (auto [offset, length] : {std::pair(18, 2), {44, 1}, {64, 16}, {172, 4}}) {
      std::memset(bytes.data() + group + offset, 0, static_cast<std::size_t>(length));
    }
  }
  return bytes;
}

void put(Bytes& bytes, const Layout& layout, std::size_t index, std::uint8_t families, Bytes address,
         std::uint32_t process) {
  auto* group = bytes.data() + 24 + index * layout.size;
  group[18] = 0x1F;  // 8080
  group[19] = 0x90;
  group[44] = families;
  std::copy(address.begin(), address.end(), group + 80 - address.size());
  std::memcpy(group + 172, &process, sizeof process);
}

std::vector<SocketEntry> socketsOn(std::uint16_t port, std::span<const std::uint8_t> bytes, const Layout& layout) {
  std::vector<SocketEntry> found;
  visitSocketTable(bytes, layout.protocol, layout.release, port, [&](const SocketEntry& entry) {
    found.push_back(entry);
    return true;
  });
  return found;
}

std::vector<std::uint64_t> processesOn(std::uint16_t port, std::span<const std::uint8_t> bytes, const Layout& layout) {
  std::vector<std::uint64_t> processes;
  for (const auto& entry : socketsOn(port, bytes, layout)) processes.push_back(entry.identity);
  return processes;
}

TEST(SocketTableOfMacOS, FieldsAreFoundInEachLayout) {
  for (const auto& layout : layouts) {
    SCOPED_TRACE(layout.size);
    auto bytes = table(layout, 4);
    put(bytes, layout, 1, four, {127, 0, 0, 1}, 42);
    put(bytes, layout, 2, four | six, {}, 0x89ABCDEF);
    put(bytes, layout, 3, six | 0x40, {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 0);
    auto found = socketsOn(8080, bytes, layout);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_TRUE(found[0].isIPv4 && !found[0].isIPv6);
    EXPECT_TRUE(found[1].isIPv4 && found[1].isIPv6);
    EXPECT_TRUE(!found[2].isIPv4 && found[2].isIPv6);
    EXPECT_EQ(found[0].localPort, 8080);
    EXPECT_THAT(found[0].localAddress, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 127, 0, 0, 1));
    EXPECT_THAT(found[2].localAddress, ElementsAre(0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1));
    EXPECT_THAT(processesOn(8080, bytes, layout), ElementsAre(42, 0x89ABCDEF, 0));
    EXPECT_THAT(processesOn(0, bytes, layout), ElementsAre(0));  // bound to no port
    EXPECT_THAT(processesOn(0x901F, bytes, layout), IsEmpty());  // the other byte order
    EXPECT_THAT(processesOn(0xEEEE, bytes, layout), IsEmpty());
  }
}

TEST(SocketTableOfMacOS, TheVisitorEndsTheWalk) {
  auto bytes = table(layouts[1], 3);
  for (std::uint32_t index : {0u, 1u, 2u}) put(bytes, layouts[1], index, four, {}, index);
  std::vector<std::uint64_t> visited;
  visitSocketTable(bytes, udp, sinceMacOS13, 8080, [&](const SocketEntry& entry) {
    visited.push_back(entry.identity);
    return visited.size() < 2;
  });
  EXPECT_THAT(visited, ElementsAre(0, 1));
}

}  // namespace
}  // namespace platform
