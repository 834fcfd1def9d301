// The DHCP messages of the discover probe, as bytes (RFC 2131, RFC 2132).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

/// A message, padded with zeros to the size that every host must accept (RFC 2131, section 2).
using BRHDHCPMessage = std::array<std::uint8_t, 548>;
using BRHHardwareAddress = std::array<std::uint8_t, 6>;

// Offsets of the fields.
inline constexpr std::size_t BRHDHCPTransactionOffset = 4;
inline constexpr std::size_t BRHDHCPClientAddressOffset = 12;
inline constexpr std::size_t BRHDHCPYourAddressOffset = 16;
inline constexpr std::size_t BRHDHCPServerAddressOffset = 20;
inline constexpr std::size_t BRHDHCPRelayAddressOffset = 24;
inline constexpr std::size_t BRHDHCPHardwareAddressOffset = 28;

/// A DHCPDISCOVER that asks for broadcast answers. Its only option is the message type.
BRHDHCPMessage BRHMakeDHCPDiscover(const BRHHardwareAddress& hardwareAddress, std::uint32_t transactionID);

/// The transaction ID of any message, valid or not.
std::uint32_t BRHDHCPTransactionID(const BRHDHCPMessage& message);

/// The IPv4 address at an offset, in dotted form.
std::string BRHDHCPAddressText(const BRHDHCPMessage& message, std::size_t offset);

enum class BRHDHCPVerdict { offer, malformedOrNoOffer, otherTransaction, otherHardwareAddress };

/// Checks the first `length` bytes of a received message: first its form and type, then its transaction ID, then its
/// hardware address. Reports the first mismatch.
BRHDHCPVerdict BRHJudgeDHCPOffer(const BRHDHCPMessage& message, std::size_t length, std::uint32_t transactionID,
                                 const BRHHardwareAddress& hardwareAddress);
