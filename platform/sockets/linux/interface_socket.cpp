#include "platform/sockets/interface_socket.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace platform {

Result<FileDescriptor> openSocket(int family, int type, int protocol) {
  FileDescriptor opened(socket(family, type | SOCK_CLOEXEC, protocol));
  if (!opened) return lastFailure();
  return opened;
}

// Nothing to do for UDP: closing a socket frees its port. SO_REUSEADDR would let two sockets with the option share a
// port (socket(7)).
Result<void> allowReuseOfPort(int) {
  return {};
}

Result<void> bindToInterface(int socket, const std::string& interfaceName) {
  return resultOfCall(setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, interfaceName.c_str(),
                                 static_cast<socklen_t>(interfaceName.size())));
}

void enlargeReceiveBuffer(int socket) {
  constexpr int size = 16 << 20;
  if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) == 0) return;
  setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

// Sockets bound to different interfaces can share a port, so the interface is unbound during bind().
Result<void> bindToPort(int socket, std::uint16_t port) {
  std::array<char, IF_NAMESIZE> name{};
  socklen_t length = name.size();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (getsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, name.data(), &length) != 0) return lastFailure();
  if (auto unbound = bindToInterface(socket, ""); !unbound) return unbound;
  if (bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return lastFailure();
  return bindToInterface(socket, name.data());
}

Result<std::vector<std::uint8_t>> linkLayerAddress(const std::string& interfaceName) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return lastFailure();
  std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
  for (const auto* entry = list; entry; entry = entry->ifa_next) {
    if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_PACKET || interfaceName != entry->ifa_name) continue;
    sockaddr_ll address;
    std::memcpy(&address, entry->ifa_addr, sizeof address);
    // The loopback interface reports six zeros, which are not an address.
    if (address.sll_hatype == ARPHRD_LOOPBACK) break;
    return std::vector<std::uint8_t>(address.sll_addr, address.sll_addr + std::min<std::size_t>(address.sll_halen, 8));
  }
  return std::vector<std::uint8_t>();
}

}  // namespace platform
