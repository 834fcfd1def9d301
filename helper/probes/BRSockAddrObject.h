// Socket addresses in the BSD layout, which messages carry on every platform.
//
// Byte 0 is the length, byte 1 the family, bytes 2 and 3 the port in network order; an IPv4 address stands at bytes 4
// to 7, an IPv6 address at bytes 8 to 23, its scope, in host order, at bytes 24 to 27.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

using BRSockAddr = std::array<std::uint8_t, 128>;

inline constexpr std::uint8_t BRFamilyIPv4 = 2;
inline constexpr std::uint8_t BRFamilyIPv6 = 30;

/// An IPv4 address (network order) with a port (host order).
BRSockAddr BRSockAddrMakeIPv4(std::array<std::uint8_t, 4> address, std::uint16_t port);
/// An IPv6 address with a port (host order).
BRSockAddr BRSockAddrMakeIPv6(const std::array<std::uint8_t, 16>& address, std::uint16_t port);

inline std::uint8_t BRSockAddrFamily(const BRSockAddr& address) {
  return address[1];
}
/// In host order; of use for the two families only.
inline std::uint16_t BRSockAddrPort(const BRSockAddr& address) {
  return static_cast<std::uint16_t>(address[2] << 8 | address[3]);
}
/// Index of the interface that an IPv6 address belongs to; 0: none, and for other families.
std::uint32_t BRSockAddrScope(const BRSockAddr& address);
/// The bytes of the address in network order; empty for other families.
std::span<const std::uint8_t> BRSockAddrAddress(const BRSockAddr& address);

/// "192.0.2.1", "fe80::1%eth0"; with the port "192.0.2.1:80", "[fe80::1%eth0]:80". Empty for other families.
std::string BRSockAddrText(const BRSockAddr& address, bool withPort);

/// A socket address as a value: comparable, ordered, a key.
class BRSockAddrObject {
 public:
  static BRSockAddrObject objectWithAddr(const BRSockAddr& address) { return BRSockAddrObject(address); }
  /// With the port set to 0.
  static BRSockAddrObject objectWithAddrIgnorePort(BRSockAddr address);

  const BRSockAddr& addr() const { return addr_; }
  void setAddr(const BRSockAddr& address) { addr_ = address; }

  /// Same length byte, and the same in that many bytes.
  bool isEqual(const BRSockAddrObject& other) const;
  /// Nothing equals an address of length 0.
  bool isEqual(std::nullptr_t) const { return addr_[0] == 0; }

  /// Of the address alone, without the port; 0 for other families.
  std::size_t hash() const;

  /// By family, then address, then port; addresses of one other family are equivalent.
  std::weak_ordering compare(const BRSockAddrObject& other) const;
  /// Nothing comes before every address.
  std::weak_ordering compare(std::nullptr_t) const { return std::weak_ordering::greater; }

  /// The text, with the port unless it is 0.
  std::string description() const;

  bool operator==(const BRSockAddrObject& other) const { return isEqual(other); }
  std::weak_ordering operator<=>(const BRSockAddrObject& other) const { return compare(other); }

 private:
  explicit BRSockAddrObject(const BRSockAddr& address) : addr_(address) {}
  BRSockAddr addr_;
};

template <>
struct std::hash<BRSockAddrObject> {
  std::size_t operator()(const BRSockAddrObject& object) const { return object.hash(); }
};
