// Socket addresses in the BSD layout, the form in which messages carry them on every platform.
//
//   byte 0        length
//   byte 1        family
//   bytes 2-3     port, network order
//   bytes 4-7     IPv4 address
//   bytes 8-23    IPv6 address
//   bytes 24-27   scope of an IPv6 address, host order
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
/// The port in host order. Meaningful for the two families above only.
inline std::uint16_t BRSockAddrPort(const BRSockAddr& address) {
  return static_cast<std::uint16_t>(address[2] << 8 | address[3]);
}
/// Interface index of an IPv6 address; 0 if it has none, and for other families.
std::uint32_t BRSockAddrScope(const BRSockAddr& address);
/// The address in network order; empty for other families.
std::span<const std::uint8_t> BRSockAddrAddress(const BRSockAddr& address);

/// "192.0.2.1" or "fe80::1%eth0"; with the port, "192.0.2.1:80" or "[fe80::1%eth0]:80". Empty for other families.
std::string BRSockAddrText(const BRSockAddr& address, bool withPort);

/// A socket address as a value that can be compared, ordered and used as a key.
class BRSockAddrObject {
 public:
  static BRSockAddrObject objectWithAddr(const BRSockAddr& address) { return BRSockAddrObject(address); }
  /// Sets the port to 0.
  static BRSockAddrObject objectWithAddrIgnorePort(BRSockAddr address);

  const BRSockAddr& addr() const { return addr_; }
  void setAddr(const BRSockAddr& address) { addr_ = address; }

  /// Whether both have the same length byte and the same bytes up to that length.
  bool isEqual(const BRSockAddrObject& other) const;
  /// A null pointer equals an address of length 0.
  bool isEqual(std::nullptr_t) const { return addr_[0] == 0; }

  /// Hashes the address without the port; 0 for other families.
  std::size_t hash() const;

  /// Orders by family, then address, then port. Two addresses of the same family are equivalent if that family is
  /// neither IPv4 nor IPv6.
  std::weak_ordering compare(const BRSockAddrObject& other) const;
  /// A null pointer comes before every address.
  std::weak_ordering compare(std::nullptr_t) const { return std::weak_ordering::greater; }

  /// BRSockAddrText(), with the port unless it is 0.
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
