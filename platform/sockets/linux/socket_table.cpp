#include "platform/sockets/socket_table.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/base/file_descriptor.h"

namespace platform {

namespace {

// States as bits. TIME_WAIT, SYN_RECV and NEW_SYN_RECV are no sockets of a process.
constexpr std::uint32_t listening = 1u << TCP_LISTEN;
constexpr std::uint32_t connected = 1u << TCP_ESTABLISHED | 1u << TCP_SYN_SENT | 1u << TCP_FIN_WAIT1 |
                                    1u << TCP_FIN_WAIT2 | 1u << TCP_CLOSE | 1u << TCP_CLOSE_WAIT | 1u << TCP_LAST_ACK |
                                    1u << TCP_CLOSING;
constexpr std::uint32_t boundInactive = 1u << 13;  // TCP_BOUND_INACTIVE, Linux 6.8; ignored before

/// Asks for the sockets on a local port. The body is inet_diag_req_v2, or the inet_diag_req of old, for TCP alone: that
/// one covers both address families in one walk through the kernel's tables.
template <class Body>
struct DumpRequest {
  nlmsghdr header{};
  Body body{};

  DumpRequest(std::uint16_t type, std::uint32_t states, std::uint16_t port) {
    header.nlmsg_len = sizeof *this;
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    body.idiag_states = states;
    body.id.idiag_sport = htons(port);
  }
};

SocketEntry entryOf(const inet_diag_msg& message, std::size_t length) {
  SocketEntry entry;
  entry.localPort = ntohs(message.id.idiag_sport);
  entry.identity = message.idiag_inode;
  entry.userID = message.idiag_uid;
  if (message.idiag_family == AF_INET) {
    entry.isIPv4 = true;
    std::memcpy(entry.localAddress.data() + 12, message.id.idiag_src, 4);
    return entry;
  }
  std::memcpy(entry.localAddress.data(), message.id.idiag_src, 16);
  in6_addr address;
  std::memcpy(&address, message.id.idiag_src, sizeof address);
  if (IN6_IS_ADDR_V4MAPPED(&address)) {
    entry.isIPv4 = true;
    return entry;
  }
  bool onlyIPv6 = false;
  const auto* attribute = reinterpret_cast<const nlattr*>(&message + 1);
  for (std::size_t rest = length - sizeof message;
       rest >= sizeof *attribute && attribute->nla_len >= sizeof *attribute && attribute->nla_len <= rest;) {
    if (attribute->nla_type == INET_DIAG_SKV6ONLY && attribute->nla_len > sizeof *attribute) {
      onlyIPv6 = *reinterpret_cast<const std::uint8_t*>(attribute + 1) != 0;
    }
    std::size_t step = std::min<std::size_t>(NLA_ALIGN(attribute->nla_len), rest);
    rest -= step;
    attribute = reinterpret_cast<const nlattr*>(reinterpret_cast<const char*>(attribute) + step);
  }
  entry.isIPv6 = true;
  entry.isIPv4 = IN6_IS_ADDR_UNSPECIFIED(&address) && !onlyIPv6;
  return entry;
}

/// Dumps the sockets that a request asks for; false when `visit` wanted no more.
template <class Body>
bool dump(const DumpRequest<Body>& request, const std::function<bool(const SocketEntry&)>& visit) {
  // One a dump: an earlier one may be left half read.
  FileDescriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (!netlink ||
      sendto(netlink.get(), &request, sizeof request, 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0) {
    return true;
  }
  alignas(nlmsghdr) static thread_local std::array<char, 32'768> buffer;
  while (true) {
    auto received = recv(netlink.get(), buffer.data(), buffer.size(), 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return true;
    auto rest = static_cast<unsigned>(received);
    for (auto* header = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(header, rest);
         header = NLMSG_NEXT(header, rest)) {
      if (header->nlmsg_type == NLMSG_DONE || header->nlmsg_type == NLMSG_ERROR) return true;
      if (header->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) continue;
      const auto& message = *static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
      // The kernel leaves other ports out, but not among bound sockets, and takes port 0 for any.
      if (message.idiag_inode == 0 || message.id.idiag_sport != request.body.id.idiag_sport) continue;
      if (!visit(entryOf(message, header->nlmsg_len - NLMSG_HDRLEN))) return false;
    }
  }
}

}  // namespace

void visitSockets(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6,
                  const std::function<bool(const SocketEntry&)>& visit) {
  if (protocol == SocketProtocol::udp) {
    for (int family : {AF_INET, AF_INET6}) {
      if (onlyIPv6 && family == AF_INET) continue;
      DumpRequest<inet_diag_req_v2> request(SOCK_DIAG_BY_FAMILY, connected, port);
      request.body.sdiag_family = static_cast<std::uint8_t>(family);
      request.body.sdiag_protocol = IPPROTO_UDP;
      if (!dump(request, visit)) return;
    }
    return;
  }
  // The cheap ones and the likely ones first: the kernel has a table of listeners alone, walks that of connections to
  // its end, and for sockets that are merely bound walks both it and the table of ports.
  for (std::uint32_t states : {listening, connected, boundInactive}) {
    if (!dump(DumpRequest<inet_diag_req>(TCPDIAG_GETSOCK, states, port), visit)) return;
  }
}

}  // namespace platform
