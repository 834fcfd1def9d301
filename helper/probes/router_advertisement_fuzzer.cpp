// Fuzzes advertisements from hostile routers: an accepted message is an advertisement and ends with the datagram.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "helper/probes/router_advertisement.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  // Input: the sender's address, a hop limit, the datagram.
  if (size < 17) return 0;
  std::array<std::uint8_t, 16> source;
  std::copy_n(bytes, source.size(), source.begin());
  std::span datagram(bytes + 17, size - 17);
  auto message = BRHRouterAdvertisement(datagram, bytes[16], source);
  if (message && (message->size() < 16 || message->front() != 134 || &message->back() != &datagram.back()))
    std::abort();
  return 0;
}
