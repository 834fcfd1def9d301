// Tests well-formed and malformed ancillary data.
#include "platform/sockets/ancillary_data.h"

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// One header with data, padded to where the next header may begin.
Bytes entry(int level, int type, const Bytes& data, std::optional<std::size_t> length = {}) {
  Bytes bytes(CMSG_SPACE(data.size()), 0xEE);
  cmsghdr header{};
  header.cmsg_len = static_cast<decltype(header.cmsg_len)>(length.value_or(CMSG_LEN(data.size())));
  header.cmsg_level = level;
  header.cmsg_type = type;
  std::memcpy(bytes.data(), &header, sizeof header);
  std::copy(data.begin(), data.end(), bytes.begin() + CMSG_LEN(0));
  return bytes;
}

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes hopLimit(int value) {
  Bytes data(sizeof value);
  std::memcpy(data.data(), &value, sizeof value);
  return entry(IPPROTO_IPV6, IPV6_2292HOPLIMIT, data);
}

const Bytes other = entry(SOL_SOCKET, SO_TIMESTAMP, Bytes(13));

TEST(AncillaryData, FirstHopLimitIsFound) {
  EXPECT_EQ(hopLimitIn(hopLimit(255)), 255);
  EXPECT_EQ(hopLimitIn(hopLimit(64) + hopLimit(255)), 64);
  EXPECT_EQ(hopLimitIn(other + entry(IPPROTO_IPV6, IPV6_2292PKTINFO, Bytes(20)) + hopLimit(-1)), -1);
  // A hop limit of another level does not count.
  EXPECT_EQ(hopLimitIn(entry(SOL_SOCKET, IPV6_2292HOPLIMIT, Bytes(4)) + hopLimit(7)), 7);
  EXPECT_EQ(hopLimitIn(entry(SOL_SOCKET, SO_TIMESTAMP, {}) + hopLimit(6)), 6);
  // The first hop limit is too short, so the next one counts.
  EXPECT_EQ(hopLimitIn(entry(IPPROTO_IPV6, IPV6_2292HOPLIMIT, Bytes(3)) + hopLimit(8)), 8);
}

TEST(AncillaryData, TruncatedAndMalformedDataIsNotRead) {
  EXPECT_EQ(hopLimitIn({}), std::nullopt);
  EXPECT_EQ(hopLimitIn(other), std::nullopt);
  auto whole = hopLimit(255);
  for (std::size_t size = 0; size < CMSG_LEN(sizeof(int)); ++size) {
    EXPECT_EQ(hopLimitIn(std::span(whole).first(size)), std::nullopt) << size;
  }
  EXPECT_EQ(hopLimitIn(std::span(whole).first(CMSG_LEN(sizeof(int)))), 255);  // the last header needs no padding

  for (std::size_t length :
       {std::size_t{0}, std::size_t{1}, CMSG_LEN(0) - 1, std::size_t{1000}, SIZE_MAX - 2, SIZE_MAX}) {
    EXPECT_EQ(hopLimitIn(entry(SOL_SOCKET, SO_TIMESTAMP, Bytes(8), length) + hopLimit(255)), std::nullopt) << length;
    EXPECT_EQ(hopLimitIn(entry(IPPROTO_IPV6, IPV6_2292HOPLIMIT, Bytes(4), length)), std::nullopt) << length;
  }
}

}  // namespace
}  // namespace platform
