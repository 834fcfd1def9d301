#include <arpa/inet.h>
#include <brimo/SocketAddress.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <charconv>
#include <cstring>

namespace brimo {
inline namespace v1 {

std::optional<SocketAddress> socketAddress(const ::sockaddr* address) {
  SocketAddress result;
  if (address->sa_family == AF_INET) {
    sockaddr_in from;
    std::memcpy(&from, address, sizeof from);
    std::memcpy(result.bytes.data(), &from.sin_addr, sizeof from.sin_addr);
    result.port = ntohs(from.sin_port);
    return result;
  }
  if (address->sa_family != AF_INET6) return std::nullopt;
  sockaddr_in6 from;
  std::memcpy(&from, address, sizeof from);
  std::memcpy(result.bytes.data(), &from.sin6_addr, sizeof from.sin6_addr);
  result.isIPv6 = true;
  result.port = ntohs(from.sin6_port);
  result.scope = from.sin6_scope_id;
  return result;
}

std::optional<SocketAddress> parseSocketAddress(const std::string& text) {
  auto colon = text.rfind(':');
  if (colon == text.npos) return std::nullopt;
  SocketAddress result;
  const char* end = text.data() + text.size();
  auto [rest, error] = std::from_chars(text.data() + colon + 1, end, result.port);
  if (error != std::errc() || rest != end) return std::nullopt;

  auto host = text.substr(0, colon);
  result.isIPv6 = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (result.isIPv6) host = host.substr(1, host.size() - 2);
  if (auto percent = host.find('%'); result.isIPv6 && percent != host.npos) {
    result.scope = if_nametoindex(host.substr(percent + 1).c_str());
    if (result.scope == 0) return std::nullopt;
    host.resize(percent);
  }
  // inet_pton(3) would ignore everything after a NUL.
  if (host.find('\0') != host.npos) return std::nullopt;
  if (inet_pton(result.isIPv6 ? AF_INET6 : AF_INET, host.c_str(), result.bytes.data()) != 1) return std::nullopt;
  return result;
}

}  // namespace v1
}  // namespace brimo
