#include "platform/sockets.h"

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

#include "platform/file_descriptor.h"

namespace platform {

namespace {

// States as bits. TIME_WAIT, SYN_RECV and NEW_SYN_RECV are no sockets of a process. Listeners come first: the kernel
// finds them without a walk through its table of connections.
constexpr std::uint32_t boundInactive = 1u << 13;  // TCP_BOUND_INACTIVE, Linux 6.8; ignored before
constexpr std::uint32_t listening = 1u << TCP_LISTEN;
constexpr std::uint32_t connected = 1u << TCP_ESTABLISHED | 1u << TCP_SYN_SENT | 1u << TCP_FIN_WAIT1 |
                                    1u << TCP_FIN_WAIT2 | 1u << TCP_CLOSE | 1u << TCP_CLOSE_WAIT | 1u << TCP_LAST_ACK |
                                    1u << TCP_CLOSING | boundInactive;

/// Has the kernel leave out sockets on other ports than one: source port >= port, else reject; source port <= port,
/// else reject (inet_diag bytecode; a jump past the end rejects).
struct PortFilter {
  inet_diag_bc_op atLeast, atLeastPort, atMost, atMostPort;

  explicit PortFilter(std::uint16_t port)
      : atLeast{INET_DIAG_BC_S_GE, 2 * sizeof(inet_diag_bc_op), sizeof(PortFilter) + 4},
        atLeastPort{0, 0, port},
        atMost{INET_DIAG_BC_S_LE, 2 * sizeof(inet_diag_bc_op), 2 * sizeof(inet_diag_bc_op) + 4},
        atMostPort{0, 0, port} {}
};

struct DumpRequest {
  nlmsghdr header{};
  inet_diag_req_v2 body{};
  nlattr filterHeader{};
  PortFilter filter;

  DumpRequest(SocketProtocol protocol, int family, std::uint32_t states, std::uint16_t port) : filter(port) {
    header.nlmsg_len = sizeof *this;
    header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    body.sdiag_family = static_cast<std::uint8_t>(family);
    body.sdiag_protocol = protocol == SocketProtocol::udp ? IPPROTO_UDP : IPPROTO_TCP;
    body.idiag_states = states;
    filterHeader.nla_len = sizeof filterHeader + sizeof filter;
    filterHeader.nla_type = INET_DIAG_REQ_BYTECODE;
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

/// Dumps the sockets of one family and set of states; false when `visit` wanted no more.
bool dump(int netlink, const DumpRequest& request, const std::function<bool(const SocketEntry&)>& visit) {
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (sendto(netlink, &request, sizeof request, 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0)
    return true;
  alignas(nlmsghdr) static thread_local std::array<char, 32'768> buffer;
  while (true) {
    auto received = recv(netlink, buffer.data(), buffer.size(), 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return true;
    auto rest = static_cast<unsigned>(received);
    for (auto* header = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(header, rest);
         header = NLMSG_NEXT(header, rest)) {
      if (header->nlmsg_type == NLMSG_DONE || header->nlmsg_type == NLMSG_ERROR) return true;
      if (header->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) continue;
      const auto& message = *static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
      if (message.idiag_inode != 0 && !visit(entryOf(message, header->nlmsg_len - NLMSG_HDRLEN))) return false;
    }
  }
}

}  // namespace

void visitSockets(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6,
                  const std::function<bool(const SocketEntry&)>& visit) {
  const bool udp = protocol == SocketProtocol::udp;
  for (std::uint32_t states : {listening, connected}) {
    if (udp && states == listening) continue;
    for (int family : {AF_INET, AF_INET6}) {
      if (onlyIPv6 && family == AF_INET) continue;
      // One a dump: an earlier one may be left half read.
      FileDescriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
      if (!netlink) return;
      if (!dump(netlink.get(), DumpRequest(protocol, family, states, port), visit)) return;
    }
  }
}

}  // namespace platform
