#include "platform/sockets/ancillary_data.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

namespace platform {

namespace {

/// Distance from the start of a header to the next. (CMSG_ALIGN is not available on every system.)
constexpr std::size_t step(std::size_t length) {
  return CMSG_SPACE(length) - CMSG_SPACE(0);
}

}  // namespace

std::optional<int> hopLimitIn(std::span<const std::uint8_t> ancillary) {
  while (ancillary.size() >= sizeof(cmsghdr)) {
    cmsghdr header;
    std::memcpy(&header, ancillary.data(), sizeof header);
    if (header.cmsg_len < sizeof header || header.cmsg_len > ancillary.size()) return std::nullopt;
    if (header.cmsg_level == IPPROTO_IPV6 && header.cmsg_type == IPV6_2292HOPLIMIT &&
        header.cmsg_len >= CMSG_LEN(sizeof(int))) {
      int hopLimit;
      std::memcpy(&hopLimit, ancillary.data() + CMSG_LEN(0), sizeof hopLimit);
      return hopLimit;
    }
    if (step(header.cmsg_len) > ancillary.size()) return std::nullopt;
    ancillary = ancillary.subspan(step(header.cmsg_len));
  }
  return std::nullopt;
}

}  // namespace platform
