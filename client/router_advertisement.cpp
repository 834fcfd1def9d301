#include "client/router_advertisement.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <net/if.h>

#include <array>
#include <cctype>
#include <cstring>

namespace brimo {

namespace {

using Bytes = std::span<const std::uint8_t>;

enum Option {
  sourceLinkLayerAddress = 1,
  prefixInformation = 3,
  mtuOption = 5,
  dnsServerOption = 25,
  searchListOption = 31
};
constexpr std::uint8_t routerAdvertisement = 134;
constexpr std::size_t messageHeader = 16;
constexpr std::size_t socketAddressSize = 28;

std::uint16_t read16(Bytes bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

std::uint32_t read32(Bytes bytes, std::size_t offset) {
  return std::uint32_t{read16(bytes, offset)} << 16 | read16(bytes, offset + 2);
}

std::string addressText(Bytes bytes, std::size_t offset) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, bytes.subspan(offset, 16).data(), text.data(), text.size());
  return text.data();
}

/// Decodes domain names (RFC 1035, section 3.1, never compressed). Zeros between or after them are padding. Skips every
/// name with a character other than letters, digits, "-" and "_": names come from the network and are printed on a
/// terminal.
std::vector<std::string> domainNames(Bytes bytes) {
  std::vector<std::string> names;
  std::string name;
  bool isPlain = true;
  while (!bytes.empty()) {
    const std::size_t length = bytes[0];
    bytes = bytes.subspan(1);
    if (length == 0) {
      if (!name.empty() && isPlain) names.push_back(name);
      name.clear();
      isPlain = true;
      continue;
    }
    if (length > 63 || length > bytes.size()) break;
    if (!name.empty()) name += '.';
    for (auto byte : bytes.first(length)) {
      isPlain = isPlain && (std::isalnum(byte) || byte == '-' || byte == '_');
      name += static_cast<char>(byte);
    }
    bytes = bytes.subspan(length);
  }
  return names;
}

/// Adds an option's content to the result. Returns false when the option is too short for its type or has an invalid
/// prefix length.
bool addOption(RouterAdvertisement& result, Bytes option) {
  switch (option[0]) {
    case sourceLinkLayerAddress:
      result.linkLayerAddress = fmt::format("{:02x}", fmt::join(option.subspan(2), ":"));
      return true;
    case prefixInformation: {
      if (option.size() < 32 || option[2] > 128) return false;
      constexpr std::uint8_t onLink = 0x80, autonomous = 0x40;
      result.prefixes.push_back({.prefix = fmt::format("{}/{}", addressText(option, 16), option[2]),
                                 .onLink = (option[3] & onLink) != 0,
                                 .autonomous = (option[3] & autonomous) != 0,
                                 .validLifetime = read32(option, 4),
                                 .preferredLifetime = read32(option, 8)});
      return true;
    }
    case mtuOption:
      result.mtu = read32(option, 4);
      return true;
    case dnsServerOption:
      for (std::size_t offset = 8; offset + 16 <= option.size(); offset += 16) {
        result.dnsServers.push_back(addressText(option, offset));
      }
      return true;
    case searchListOption:
      for (auto& name : domainNames(option.subspan(8))) result.searchDomains.push_back(std::move(name));
      return true;
    default:
      return true;
  }
}

}  // namespace

std::optional<RouterAdvertisement> decodeRouterAdvertisement(Bytes message, Bytes address) {
  if (message.size() < messageHeader || message[0] != routerAdvertisement || address.size() < socketAddressSize) {
    return std::nullopt;
  }
  RouterAdvertisement result;
  result.router = addressText(address, 8);
  std::uint32_t scope;
  std::memcpy(&scope, address.data() + 24, sizeof scope);
  std::array<char, IF_NAMESIZE> interface;
  if (scope != 0 && if_indextoname(scope, interface.data())) result.router += fmt::format("%{}", interface.data());
  result.hopLimit = message[4];
  result.managed = (message[5] & 0x80) != 0;
  result.otherConfiguration = (message[5] & 0x40) != 0;
  result.lifetime = read16(message, 6);
  for (auto options = message.subspan(messageHeader); !options.empty();) {
    if (options.size() < 8) return std::nullopt;
    const std::size_t length = options[1] * std::size_t{8};  // zero is invalid (RFC 4861, section 4.6)
    if (length == 0 || length > options.size() || !addOption(result, options.first(length))) return std::nullopt;
    options = options.subspan(length);
  }
  return result;
}

}  // namespace brimo
