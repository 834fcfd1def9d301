#include "platform/sockets/socket_table.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <mutex>

#include "platform/base/file_descriptor.h"

namespace platform {

namespace {

// States as bits. Sockets in TIME_WAIT, SYN_RECV and NEW_SYN_RECV belong to no process.
constexpr std::uint32_t listening = 1u << TCP_LISTEN;
constexpr std::uint32_t connected = 1u << TCP_ESTABLISHED | 1u << TCP_SYN_SENT | 1u << TCP_FIN_WAIT1 |
                                    1u << TCP_FIN_WAIT2 | 1u << TCP_CLOSE | 1u << TCP_CLOSE_WAIT | 1u << TCP_LAST_ACK |
                                    1u << TCP_CLOSING;
constexpr std::uint32_t boundInactive = 1u << 13;  // TCP_BOUND_INACTIVE, since Linux 6.8; ignored before

/// Asks for the sockets on a local port. The body is inet_diag_req_v2 or, for TCP only, the older inet_diag_req, which
/// covers both address families in one walk through the kernel's tables.
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

/// Reads the attributes of a message (sock_diag(7)) and stores the control group in the entry. Returns whether the
/// socket is for IPv6 only.
bool readAttributes(const inet_diag_msg& message, std::size_t length, SocketEntry& entry) {
  bool onlyIPv6 = false;
  auto rest = static_cast<int>(length - sizeof message);
  for (const auto* attribute = reinterpret_cast<const rtattr*>(&message + 1); RTA_OK(attribute, rest);
       attribute = RTA_NEXT(attribute, rest)) {
    const auto* value = reinterpret_cast<const std::uint8_t*>(attribute + 1);
    if (attribute->rta_type == INET_DIAG_SKV6ONLY) onlyIPv6 = *value != 0;
    if (attribute->rta_type == INET_DIAG_CGROUP_ID) std::memcpy(&entry.controlGroup, value, sizeof entry.controlGroup);
  }
  return onlyIPv6;
}

/// `length` includes the attributes after the message.
SocketEntry entryOf(const inet_diag_msg& message, std::size_t length) {
  SocketEntry entry;
  entry.localPort = ntohs(message.id.idiag_sport);
  entry.identity = message.idiag_inode;
  entry.userID = message.idiag_uid;
  const bool onlyIPv6 = readAttributes(message, length, entry);
  if (message.idiag_family == AF_INET) {
    entry.isIPv4 = true;
    std::memcpy(entry.localAddress.data() + 12, message.id.idiag_src, 4);
    return entry;
  }
  std::memcpy(entry.localAddress.data(), message.id.idiag_src, 16);
  in6_addr address;
  std::memcpy(&address, message.id.idiag_src, sizeof address);
  entry.isIPv6 = !IN6_IS_ADDR_V4MAPPED(&address);
  entry.isIPv4 = !entry.isIPv6 || (IN6_IS_ADDR_UNSPECIFIED(&address) && !onlyIPv6);
  return entry;
}

FileDescriptor openNetlink() {
  return FileDescriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
}

/// The far end of a connection.
struct Remote {
  std::uint8_t family = AF_INET;
  std::array<std::uint8_t, 16> address{};  // an IPv4 address is in the first four bytes
  std::uint16_t port = 0;                  // host byte order

  explicit Remote(const SocketEnd& end) : family(end.address.size() == 4 ? AF_INET : AF_INET6), port(end.port) {
    std::copy(end.address.begin(), end.address.end(), address.begin());
  }
  /// An IPv6 socket connected over IPv4 has an IPv4 remote end.
  explicit Remote(const inet_diag_msg& message) : port(ntohs(message.id.idiag_dport)) {
    in6_addr bytes;
    std::memcpy(&bytes, message.id.idiag_dst, sizeof bytes);
    const bool isMapped = IN6_IS_ADDR_V4MAPPED(&bytes);  // false for an IPv4 socket: its last 12 bytes are zero
    if (message.idiag_family == AF_INET6 && !isMapped) family = AF_INET6;
    std::memcpy(address.data(), bytes.s6_addr + (isMapped ? 12 : 0), family == AF_INET ? 4 : 16);
  }
  bool operator==(const Remote&) const = default;

  SocketEnd end() const { return {.address = std::span(address).first(family == AF_INET ? 4 : 16), .port = port}; }
};

/// The remote ends of connections looked up recently, latest first. Clients of a proxy all connect to the same one.
class RecentRemotes {
 public:
  void note(const Remote& remote) {
    if (remote.port == 0) return;
    std::lock_guard lock(mutex_);
    std::erase(remotes_, remote);
    remotes_.push_front(remote);
    if (remotes_.size() > maximum) remotes_.pop_back();
  }

  std::deque<Remote> all() {
    std::lock_guard lock(mutex_);
    return remotes_;
  }

 private:
  static constexpr std::size_t maximum = 8;
  std::mutex mutex_;
  std::deque<Remote> remotes_;
};

RecentRemotes& recentRemotes() {
  static auto& remotes = *new RecentRemotes;  // never destroyed, because look-ups may run while the process ends
  return remotes;
}

/// Passes the sockets of a dump to `visit`; returns false if `visit` ended it.
template <class Body>
bool dump(const DumpRequest<Body>& request, const std::function<bool(const SocketEntry&)>& visit) {
  // A new socket for each dump, because an earlier dump may have been left half read.
  const auto netlink = openNetlink();
  if (send(netlink.get(), &request, sizeof request, 0) < 0) return true;
  alignas(nlmsghdr) std::array<char, 32'768> buffer;
  while (true) {
    auto received = recv(netlink.get(), buffer.data(), buffer.size(), 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return true;
    auto rest = static_cast<unsigned>(received);
    for (auto* header = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(header, rest);
         header = NLMSG_NEXT(header, rest)) {
      if (header->nlmsg_type != request.header.nlmsg_type) return true;  // the end or an error
      const auto& message = *static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
      // The kernel filters by port, except that it does not filter bound sockets and treats port 0 as any port.
      if (message.idiag_inode == 0 || message.id.idiag_sport != request.body.id.idiag_sport) continue;
      if (visit(entryOf(message, header->nlmsg_len - NLMSG_HDRLEN))) continue;
      recentRemotes().note(Remote(message));
      return false;
    }
  }
}

struct ExactAnswer {
  SocketEntry entry;
  Remote remote;
};

/// Asks for the socket that receives what `remote` sends to `local` or, if `remote` is null, for the socket that
/// listens at `local`. Absent if there is no such socket or no process holds it.
std::optional<ExactAnswer> askExactly(int netlink, SocketProtocol protocol, const SocketEnd& local,
                                      const SocketEnd* remote) {
  struct {
    nlmsghdr header{};
    inet_diag_req_v2 body{};
  } request;
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.body.sdiag_family = local.address.size() == 4 ? AF_INET : AF_INET6;
  request.body.sdiag_protocol = protocol == SocketProtocol::udp ? IPPROTO_UDP : IPPROTO_TCP;
  auto& id = request.body.id;
  id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  id.idiag_if = local.scope;
  // For UDP the kernel expects the ends of an incoming packet; for TCP, the ends of the socket.
  auto set = [&](const SocketEnd& end, bool asSource) {
    (asSource ? id.idiag_sport : id.idiag_dport) = htons(end.port);
    std::memcpy(asSource ? id.idiag_src : id.idiag_dst, end.address.data(), end.address.size());
  };
  set(local, protocol == SocketProtocol::tcp);
  if (remote) set(*remote, protocol == SocketProtocol::udp);

  alignas(nlmsghdr) std::array<char, 4096> buffer;
  const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
  if (send(netlink, &request, sizeof request, 0) < 0 || recv(netlink, buffer.data(), buffer.size(), 0) < 0 ||
      header->nlmsg_type != request.header.nlmsg_type) {
    return std::nullopt;
  }
  const auto& message = *static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
  if (message.idiag_inode == 0) return std::nullopt;
  return ExactAnswer{.entry = entryOf(message, header->nlmsg_len - NLMSG_HDRLEN), .remote = Remote(message)};
}

/// connectedSocket() through an open netlink socket. Notes the remote end if the connection is found.
std::optional<SocketEntry> askForConnected(int netlink, SocketProtocol protocol, const SocketEnd& local,
                                           const SocketEnd& remote) {
  auto found = askExactly(netlink, protocol, local, &remote);
  // If none is connected, the kernel returns the socket that would accept a new connection.
  if (!found || found->remote != Remote(remote)) return std::nullopt;
  recentRemotes().note(found->remote);
  return found->entry;
}

}  // namespace

std::optional<SocketEntry> connectedSocket(SocketProtocol protocol, const SocketEnd& local, const SocketEnd& remote) {
  return askForConnected(openNetlink().get(), protocol, local, remote);
}

// The table lists listeners first, then connections in arbitrary order, so any of them may be the first.
std::optional<SocketEntry> likelySocket(const SocketEnd& local) {
  const auto netlink = openNetlink();
  if (askExactly(netlink.get(), SocketProtocol::tcp, local, nullptr)) return std::nullopt;
  for (const auto& remote : recentRemotes().all()) {
    if (remote.end().address.size() != local.address.size()) continue;
    if (auto found = askForConnected(netlink.get(), SocketProtocol::tcp, local, remote.end())) return found;
  }
  return std::nullopt;
}

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
  // Cheap and likely states come first. For listeners the kernel walks a small table, for connections the whole table
  // of connections, and for bound sockets the table of ports as well.
  for (std::uint32_t states : {listening, connected, boundInactive}) {
    if (!dump(DumpRequest<inet_diag_req>(TCPDIAG_GETSOCK, states, port), visit)) return;
  }
}

}  // namespace platform
