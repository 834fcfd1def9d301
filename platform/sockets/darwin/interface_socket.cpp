#include "platform/sockets/interface_socket.h"

#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_dl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/sockets/bsd_socket_address.h"

namespace platform {

Result<FileDescriptor> openSocket(int family, int type, int protocol) {
  FileDescriptor opened(socket(family, type, protocol));
  if (!opened || fcntl(opened.get(), F_SETFD, FD_CLOEXEC) != 0) return lastFailure();
  return opened;
}

Result<void> allowReuseOfPort(int socket) {
  int on = 1;
  return resultOfCall(setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on));
}

Result<void> bindToInterface(int socket, const std::string& interfaceName) {
  const int index = static_cast<int>(if_nametoindex(interfaceName.c_str()));
  if (index == 0) return lastFailure();  // 0 would remove a binding
  sockaddr_storage own{};                // getsockname() reports the family even of an unbound socket
  socklen_t length = sizeof own;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &length) != 0) return lastFailure();
  const bool isIPv6 = own.ss_family == AF_INET6;
  return resultOfCall(setsockopt(socket, isIPv6 ? IPPROTO_IPV6 : IPPROTO_IP, isIPv6 ? IPV6_BOUND_IF : IP_BOUND_IF,
                                 &index, sizeof index));
}

// macOS rejects a size above its limit instead of reducing it.
void enlargeReceiveBuffer(int socket) {
  constexpr int largest = 16 << 20, smallest = 1 << 18;
  for (int size = largest; size >= smallest; size /= 2) {
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) == 0) return;
  }
}

Result<void> bindToPort(int socket, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return resultOfCall(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
}

Result<std::vector<std::uint8_t>> linkLayerAddress(const std::string& interfaceName) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return lastFailure();
  std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
  for (const auto* entry = list; entry; entry = entry->ifa_next) {
    if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_LINK || interfaceName != entry->ifa_name) continue;
    return linkLayerAddressIn({reinterpret_cast<const std::uint8_t*>(entry->ifa_addr), entry->ifa_addr->sa_len});
  }
  return std::vector<std::uint8_t>();
}

// The bound socket itself receives broadcasts on the interface, even if the interface has no address.
Result<FileDescriptor> openDatagramReceiver(int socket, const std::string&, std::uint16_t) {
  enlargeReceiveBuffer(socket);
  FileDescriptor receiver(fcntl(socket, F_DUPFD_CLOEXEC, 0));
  if (!receiver) return lastFailure();
  return receiver;
}

Result<ReceivedDatagram> receiveDatagram(int receiver, std::span<std::uint8_t> buffer) {
  sockaddr_in source{};
  socklen_t sourceLength = sizeof source;
  auto length = recvfrom(receiver, buffer.data(), buffer.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&source),
                         &sourceLength);
  if (length < 0) return lastFailure();
  ReceivedDatagram received{.length = static_cast<std::size_t>(length)};
  std::memcpy(received.source.data(), &source.sin_addr, received.source.size());
  return received;
}

}  // namespace platform
