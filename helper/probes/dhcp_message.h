// The DHCP messages that the discover probe sends and gets (RFC 2131, RFC 2132), as bytes.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

/// A message in a buffer of the size that every host must accept, zeros after its end.
using BRHDHCPMessage = std::array<std::uint8_t, 548>;
using BRHHardwareAddress = std::array<std::uint8_t, 6>;

/// Offsets of the fields of a message.
inline constexpr std::size_t BRHDHCPTransactionOffset = 4;
inline constexpr std::size_t BRHDHCPClientAddressOffset = 12;
inline constexpr std::size_t BRHDHCPYourAddressOffset = 16;
inline constexpr std::size_t BRHDHCPServerAddressOffset = 20;
inline constexpr std::size_t BRHDHCPRelayAddressOffset = 24;
inline constexpr std::size_t BRHDHCPHardwareAddressOffset = 28;

/// A DHCPDISCOVER that asks for broadcast answers and carries no option but its type.
BRHDHCPMessage BRHMakeDHCPDiscover(const BRHHardwareAddress& hardwareAddress, std::uint32_t transactionID);

/// The transaction of a message, whatever else it is.
std::uint32_t BRHDHCPTransactionID(const BRHDHCPMessage& message);

/// The dotted text of the IPv4 address at an offset.
std::string BRHDHCPAddressText(const BRHDHCPMessage& message, std::size_t offset);

enum class BRHDHCPVerdict { offer, malformedOrNoOffer, otherTransaction, otherHardwareAddress };

/// Judges the first `length` bytes of a received message, by shape and type first, then transaction, then hardware
/// address.
BRHDHCPVerdict BRHJudgeDHCPOffer(const BRHDHCPMessage& message, std::size_t length, std::uint32_t transactionID,
                                 const BRHHardwareAddress& hardwareAddress);
