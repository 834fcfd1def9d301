// The content of a router advertisement (RFC 4861; RFC 8106 for DNS).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brimo {
inline namespace v1 {

/// Times are in seconds; 0xFFFFFFFF means for ever.
struct RouterAdvertisement {
  struct Prefix {
    std::string prefix;       ///< "2001:db8::/64"
    bool onLink = false;      ///< hosts with the prefix can be reached without a router
    bool autonomous = false;  ///< hosts may form their own addresses with it
    std::uint32_t validLifetime = 0;
    std::uint32_t preferredLifetime = 0;
  };

  std::string router;                           ///< its address, with the interface if known: "fe80::1%eth0"
  std::uint8_t hopLimit = 0;                    ///< recommended to hosts; 0 if unspecified
  bool managed = false;                         ///< DHCPv6 provides addresses
  bool otherConfiguration = false;              ///< DHCPv6 provides other settings
  std::uint16_t lifetime = 0;                   ///< as a default router; 0 if it is not one
  std::optional<std::string> linkLayerAddress;  ///< "02:00:00:00:00:01"
  std::optional<std::uint32_t> mtu;
  std::vector<Prefix> prefixes;
  std::vector<std::string> dnsServers;
  std::vector<std::string> searchDomains;
};

}  // namespace v1
}  // namespace brimo
