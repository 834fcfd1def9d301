// Sockets for tests, and their entries in the system's table.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "platform/base/file_descriptor.h"
#include "platform/sockets/socket_table.h"

namespace platform::test {

/// A socket address of either family.
struct SocketAddress {
  SocketAddress(const std::string& address, std::uint16_t port) {
    const bool isIPv6 = address.find(':') != address.npos;
    length = isIPv6 ? sizeof six : sizeof four;
    six.sin6_family = isIPv6 ? AF_INET6 : AF_INET;
    six.sin6_port = htons(port);
    void* host = isIPv6 ? static_cast<void*>(&six.sin6_addr) : &four.sin_addr;
    EXPECT_EQ(inet_pton(six.sin6_family, address.c_str(), host), 1) << address;
  }
  union {
    sockaddr_in6 six{};
    sockaddr_in four;
    sockaddr any;
  };
  socklen_t length;
};

/// A socket bound to an address and a free port.
struct Bound {
  Bound(const std::string& address, int type, bool onlyIPv6 = false) : bound(address, 0) {
    descriptor.reset(socket(bound.any.sa_family, type, 0));
    const int on = onlyIPv6;
    if (bound.any.sa_family == AF_INET6) setsockopt(descriptor.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    EXPECT_EQ(bind(descriptor.get(), &bound.any, bound.length), 0) << address;
    EXPECT_EQ(getsockname(descriptor.get(), &bound.any, &bound.length), 0);
    port = ntohs(bound.six.sin6_port);
  }
  void connectTo(const SocketAddress& address) const {
    EXPECT_EQ(connect(descriptor.get(), &address.any, address.length), 0);
  }
  /// An IPv6 socket that is bound to an IPv4 address has an IPv4 end.
  SocketEnd end() const {
    std::span<const std::uint8_t> host(bound.six.sin6_addr.s6_addr);
    if (IN6_IS_ADDR_V4MAPPED(&bound.six.sin6_addr)) host = host.last(4);
    if (bound.any.sa_family == AF_INET) host = {reinterpret_cast<const std::uint8_t*>(&bound.four.sin_addr), 4};
    return {.address = host, .port = port};
  }
  SocketAddress bound;
  FileDescriptor descriptor;
  std::uint16_t port = 0;
};

inline std::vector<SocketEntry> socketsOn(SocketProtocol protocol, std::uint16_t port, bool onlyIPv6 = false) {
  std::vector<SocketEntry> found;
  visitSockets(protocol, port, onlyIPv6, [&](const SocketEntry& entry) {
    found.push_back(entry);
    return true;
  });
  return found;
}

}  // namespace platform::test
