// Receives from raw ICMPv6 sockets. This works the same on all systems (RFC 2292).
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/sockets/ancillary_data.h"
#include "platform/sockets/bsd_socket_address.h"
#include "platform/sockets/interface_socket.h"

namespace platform {

Result<void> requestHopLimit(int socket) {
  int on = 1;
  return resultOfCall(setsockopt(socket, IPPROTO_IPV6, IPV6_2292HOPLIMIT, &on, sizeof on));
}

Result<ReceivedICMPv6> receiveICMPv6(int socket, std::span<std::uint8_t> buffer) {
  sockaddr_in6 source{};
  alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(int))> ancillary;
  iovec vector{.iov_base = buffer.data(), .iov_len = buffer.size()};
  msghdr header{};
  header.msg_name = &source;
  header.msg_namelen = sizeof source;
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  header.msg_control = ancillary.data();
  header.msg_controllen = ancillary.size();
  auto length = recvmsg(socket, &header, 0);
  if (length < 0) return lastFailure();
  return ReceivedICMPv6{.length = static_cast<std::size_t>(length),
                        .source = bsdSocketAddress(source),
                        .hopLimit = hopLimitIn(std::span(ancillary).first(header.msg_controllen))};
}

}  // namespace platform
