#include "foundation/HXSocketAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

template <class Address>
std::uint32_t ownSize(const Address& address) {
  if constexpr (requires { address.sa_len; }) {
    return address.sa_len;
  } else {
    if (address.sa_family == AF_INET6) return sizeof(sockaddr_in6);
    return address.sa_family == AF_INET ? sizeof(sockaddr_in) : 0;
  }
}

}  // namespace

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

std::optional<std::string> stringWithIPAddressFromSockaddr(const sockaddr* address) {
  return address ? stringWithIPAddressFromSockaddr(address, ownSize(*address)) : std::nullopt;
}

std::optional<std::string> stringWithIPAddressFromSockaddrData(std::span<const std::uint8_t> data) {
  if (data.empty()) return std::nullopt;
  sockaddr_storage address{};
  std::memcpy(&address, data.data(), std::min(data.size(), sizeof address));
  return stringWithIPAddressFromSockaddr(reinterpret_cast<const sockaddr*>(&address),
                                         static_cast<std::uint32_t>(data.size()));
}
