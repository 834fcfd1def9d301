// Fuzzes offers from hostile servers: every accepted message must be a well-formed offer.
#include <algorithm>
#include <cstdlib>

#include "helper/probes/dhcp_message.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  BRHDHCPMessage message{};
  const std::size_t length = std::min(size, message.size());
  std::copy_n(bytes, length, message.begin());
  constexpr BRHHardwareAddress hardwareAddress{0x02, 0x42, 0xAC, 0x11, 0x00, 0x09};
  constexpr std::uint32_t transaction = 0x8F01A2B3;
  if (BRHJudgeDHCPOffer(message, length, transaction, hardwareAddress) != BRHDHCPVerdict::offer) return 0;
  constexpr std::array<std::uint8_t, 3> type{53, 1, 2};
  auto end = message.begin() + static_cast<std::ptrdiff_t>(length);
  if (message[0] != 2 || BRHDHCPTransactionID(message) != transaction ||
      std::search(message.begin() + 240, end, type.begin(), type.end()) == end) {
    std::abort();
  }
  return 0;
}
