#include "helper/probes/BRSockAddrObject.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>

namespace {

BRSockAddr make(std::uint8_t length, std::uint8_t family, std::uint16_t port, std::span<const std::uint8_t> bytes,
                std::size_t offset) {
  BRSockAddr address{};
  address[0] = length;
  address[1] = family;
  address[2] = static_cast<std::uint8_t>(port >> 8);
  address[3] = static_cast<std::uint8_t>(port & 0xFF);
  std::copy(bytes.begin(), bytes.end(), address.begin() + static_cast<std::ptrdiff_t>(offset));
  return address;
}

bool hasPort(const BRSockAddr& address) {
  return BRSockAddrFamily(address) == BRFamilyIPv4 || BRSockAddrFamily(address) == BRFamilyIPv6;
}

}  // namespace

BRSockAddr BRSockAddrMakeIPv4(std::array<std::uint8_t, 4> address, std::uint16_t port) {
  return make(16, BRFamilyIPv4, port, address, 4);
}

BRSockAddr BRSockAddrMakeIPv6(const std::array<std::uint8_t, 16>& address, std::uint16_t port) {
  return make(28, BRFamilyIPv6, port, address, 8);
}

std::uint32_t BRSockAddrScope(const BRSockAddr& address) {
  std::uint32_t scope = 0;
  if (BRSockAddrFamily(address) == BRFamilyIPv6) std::memcpy(&scope, address.data() + 24, sizeof scope);
  return scope;
}

std::span<const std::uint8_t> BRSockAddrAddress(const BRSockAddr& address) {
  std::span<const std::uint8_t> bytes = address;
  switch (BRSockAddrFamily(address)) {
    case BRFamilyIPv4:
      return bytes.subspan(4, 4);
    case BRFamilyIPv6:
      return bytes.subspan(8, 16);
    default:
      return {};
  }
}

std::string BRSockAddrText(const BRSockAddr& address, bool withPort) {
  if (!hasPort(address)) return {};
  bool isIPv6 = BRSockAddrFamily(address) == BRFamilyIPv6;
  std::array<char, INET6_ADDRSTRLEN> buffer{};
  inet_ntop(isIPv6 ? AF_INET6 : AF_INET, BRSockAddrAddress(address).data(), buffer.data(), buffer.size());
  std::string text = buffer.data();
  if (isIPv6) {
    const auto scope = BRSockAddrScope(address);
    std::array<char, IF_NAMESIZE> name;
    if (scope != 0 && if_indextoname(scope, name.data())) text = fmt::format("{}%{}", text, name.data());
  }
  if (!withPort) return text;
  auto port = BRSockAddrPort(address);
  return isIPv6 ? fmt::format("[{}]:{}", text, port) : fmt::format("{}:{}", text, port);
}

BRSockAddrObject BRSockAddrObject::objectWithAddrIgnorePort(BRSockAddr address) {
  if (hasPort(address)) address[2] = address[3] = 0;
  return BRSockAddrObject(address);
}

bool BRSockAddrObject::isEqual(const BRSockAddrObject& other) const {
  auto length = static_cast<std::ptrdiff_t>(std::min<std::size_t>(addr_[0], addr_.size()));
  return addr_[0] == other.addr_[0] && std::equal(addr_.begin(), addr_.begin() + length, other.addr_.begin());
}

std::size_t BRSockAddrObject::hash() const {
  std::uint32_t sum = 0;
  for (auto bytes = BRSockAddrAddress(addr_); !bytes.empty(); bytes = bytes.subspan(4)) {
    std::uint32_t word;
    std::memcpy(&word, bytes.data(), sizeof word);
    sum += word;
  }
  return sum;
}

std::weak_ordering BRSockAddrObject::compare(const BRSockAddrObject& other) const {
  if (auto order = BRSockAddrFamily(addr_) <=> BRSockAddrFamily(other.addr_); order != 0 || !hasPort(addr_))
    return order;
  auto own = BRSockAddrAddress(addr_), its = BRSockAddrAddress(other.addr_);
  auto order = std::lexicographical_compare_three_way(own.begin(), own.end(), its.begin(), its.end());
  return order != 0 ? order : BRSockAddrPort(addr_) <=> BRSockAddrPort(other.addr_);
}

std::string BRSockAddrObject::description() const {
  return BRSockAddrText(addr_, BRSockAddrPort(addr_) != 0);
}
