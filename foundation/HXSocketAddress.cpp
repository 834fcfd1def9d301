#include "foundation/HXSocketAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>

std::optional<std::string> stringWithIPAddressFromSockaddr(const sockaddr* address, std::uint32_t size) {
  if (!address) return std::nullopt;
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (size == sizeof(sockaddr_in6) && address->sa_family == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text.data(), text.size());
  } else if (size == sizeof(sockaddr_in) && address->sa_family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text.data(), text.size());
  } else {
    return std::nullopt;
  }
  return text.data();
}
