#include "helper/probes/dhcp_message.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::uint8_t bootRequest = 1, bootReply = 2;
constexpr std::uint8_t ethernet = 1, ethernetAddressLength = 6;
constexpr std::size_t cookieOffset = 236;
constexpr std::size_t optionsOffset = 240;
constexpr std::array<std::uint8_t, 4> cookie{99, 130, 83, 99};
constexpr std::uint8_t padOption = 0, messageTypeOption = 53, endOption = 255;
constexpr std::uint8_t typeDiscover = 1, typeOffer = 2;

/// The value of the first message type option; empty when there is none before the options end or become malformed.
std::span<const std::uint8_t> messageType(std::span<const std::uint8_t> options) {
  while (!options.empty()) {
    if (options[0] == padOption) {
      options = options.subspan(1);
      continue;
    }
    if (options[0] == endOption || options.size() < 2) return {};
    const std::size_t length = options[1];
    if (options.size() - 2 < length) return {};
    if (options[0] == messageTypeOption) return options.subspan(2, length);
    options = options.subspan(2 + length);
  }
  return {};
}

bool isOffer(std::span<const std::uint8_t> message) {
  // An offer has a header, a cookie and at least one byte of options.
  if (message.size() <= optionsOffset || message[0] != bootReply || message[1] != ethernet ||
      message[2] != ethernetAddressLength ||
      !std::equal(cookie.begin(), cookie.end(), message.begin() + cookieOffset)) {
    return false;
  }
  auto type = messageType(message.subspan(optionsOffset));
  return type.size() == 1 && type[0] == typeOffer;
}

}  // namespace

BRHDHCPMessage BRHMakeDHCPDiscover(const BRHHardwareAddress& hardwareAddress, std::uint32_t transactionID) {
  BRHDHCPMessage message{};
  message[0] = bootRequest;
  message[1] = ethernet;
  message[2] = ethernetAddressLength;
  for (std::size_t index = 0; index < 4; ++index) {
    message[BRHDHCPTransactionOffset + index] = static_cast<std::uint8_t>(transactionID >> (24 - 8 * index));
  }
  message[10] = 0x80;  // flags: answer by broadcast
  std::copy(hardwareAddress.begin(), hardwareAddress.end(), message.begin() + BRHDHCPHardwareAddressOffset);
  std::copy(cookie.begin(), cookie.end(), message.begin() + cookieOffset);
  constexpr std::array<std::uint8_t, 4> options{messageTypeOption, 1, typeDiscover, endOption};
  std::copy(options.begin(), options.end(), message.begin() + optionsOffset);
  return message;
}

std::uint32_t BRHDHCPTransactionID(const BRHDHCPMessage& message) {
  std::uint32_t value = 0;
  for (std::size_t index = 0; index < 4; ++index) value = value << 8 | message[BRHDHCPTransactionOffset + index];
  return value;
}

std::string BRHDHCPAddressText(const BRHDHCPMessage& message, std::size_t offset) {
  return fmt::format("{}.{}.{}.{}", message[offset], message[offset + 1], message[offset + 2], message[offset + 3]);
}

BRHDHCPVerdict BRHJudgeDHCPOffer(const BRHDHCPMessage& message, std::size_t length, std::uint32_t transactionID,
                                 const BRHHardwareAddress& hardwareAddress) {
  if (!isOffer(std::span(message).first(length))) return BRHDHCPVerdict::malformedOrNoOffer;
  if (BRHDHCPTransactionID(message) != transactionID) return BRHDHCPVerdict::otherTransaction;
  if (!std::equal(hardwareAddress.begin(), hardwareAddress.end(), message.begin() + BRHDHCPHardwareAddressOffset)) {
    return BRHDHCPVerdict::otherHardwareAddress;
  }
  return BRHDHCPVerdict::offer;
}
