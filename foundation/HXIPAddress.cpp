#include "foundation/HXIPAddress.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>

#include "foundation/detail/HXDecimalNumber.h"

namespace {

using IPv6Bytes = std::array<std::uint8_t, 16>;
using IPv4Bytes = std::array<std::uint8_t, 4>;

template <class Bytes>
std::optional<Bytes> parse(int family, std::string_view text) {
  // inet_pton() would ignore everything after a zero byte.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  Bytes bytes;
  if (inet_pton(family, std::string(text).c_str(), bytes.data()) != 1) return std::nullopt;
  return bytes;
}

std::optional<IPv4Bytes> parseIPv4(std::string_view text) {
  return parse<IPv4Bytes>(AF_INET, text);
}
std::optional<IPv6Bytes> parseIPv6(std::string_view text) {
  return parse<IPv6Bytes>(AF_INET6, text);
}

/// Sets the length field, on systems whose socket addresses have one.
template <class Address>
void setLength(Address& address) {
  if constexpr (requires { address.sin_len; }) address.sin_len = sizeof address;
}

}  // namespace

bool isIPv4Address(std::string_view text) {
  return parseIPv4(text).has_value();
}
bool isIPv6Address(std::string_view text) {
  return parseIPv6(text).has_value();
}
bool isIPAddress(std::string_view text) {
  return isIPv4Address(text) || isIPv6Address(text);
}

bool isIPv4MappedIPv6Address(std::string_view text) {
  constexpr std::array<std::uint8_t, 12> prefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  auto bytes = parseIPv6(text);
  return bytes && std::equal(prefix.begin(), prefix.end(), bytes->begin());
}
bool isMulticastIPv4Address(std::string_view text) {
  return (IPAddressUsingHostByteOrder(text) & 0xF0000000) == 0xE0000000;
}
bool isGUAIPv6Address(std::string_view text) {
  auto bytes = parseIPv6(text);
  return bytes && ((*bytes)[0] & 0xE0) == 0x20;
}
bool isULAIPv6Address(std::string_view text) {
  auto bytes = parseIPv6(text);
  return bytes && ((*bytes)[0] & 0xFE) == 0xFC;
}

bool isValidAccessableIPv4Address(std::string_view text) {
  return isIPv4Address(text) && !text.starts_with("0.") && text != "127.0.0.1" && !text.starts_with("169.254.") &&
         !text.starts_with("198.18.");
}

bool isIPCIDRString(std::string_view text) {
  auto slash = text.find('/');
  if (slash == std::string_view::npos || !isIPv4Address(text.substr(0, slash))) return false;
  auto length = text.substr(slash + 1);
  return length.size() <= 3 && hx::detail::decimalNumber(length).value_or(33) < 33;
}

std::uint32_t IPAddressUsingNetworkByteOrder(std::string_view text) {
  auto address = parse<std::array<std::uint32_t, 1>>(AF_INET, text);
  return address ? address->front() : 0;
}
std::uint32_t IPAddressUsingHostByteOrder(std::string_view text) {
  return ntohl(IPAddressUsingNetworkByteOrder(text));
}

std::optional<std::string> stringWithIPAddressUsingNetworkByteOrder(std::uint32_t address) {
  sockaddr_in socketAddress{};
  setLength(socketAddress);
  socketAddress.sin_family = AF_INET;
  socketAddress.sin_addr.s_addr = address;
  std::array<char, INET_ADDRSTRLEN> text;
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&socketAddress), sizeof socketAddress, text.data(), text.size(),
                  nullptr, 0, NI_NUMERICHOST) != 0)
    return std::nullopt;
  return text.data();
}
std::optional<std::string> stringWithIPAddressUsingHostByteOrder(std::uint32_t address) {
  return stringWithIPAddressUsingNetworkByteOrder(htonl(address));
}

std::optional<std::string> mappedIPv6AddressToIPv4Address(std::string_view text) {
  if (!isIPv4MappedIPv6Address(text)) return std::nullopt;
  auto bytes = *parseIPv6(text);
  return fmt::format("{}.{}.{}.{}", bytes[12], bytes[13], bytes[14], bytes[15]);
}

std::optional<std::string> stringWithIPv6Address(std::span<const std::uint8_t, 16> address) {
  std::array<char, INET6_ADDRSTRLEN> text;
  if (!inet_ntop(AF_INET6, address.data(), text.data(), text.size())) return std::nullopt;
  return text.data();
}
std::optional<std::string> stringWithIPv6AddressV(std::array<std::uint8_t, 16> address) {
  return stringWithIPv6Address(address);
}

std::string macAddressFromBuffer(std::span<const std::uint8_t, 6> buffer) {
  return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", buffer[0], buffer[1], buffer[2], buffer[3], buffer[4],
                     buffer[5]);
}
