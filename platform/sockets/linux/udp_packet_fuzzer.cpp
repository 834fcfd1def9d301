// Fuzzes hostile packets: a payload lies within its packet.
#include <cstdlib>

#include "platform/sockets/linux/udp_packet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  for (bool trustChecksum : {false, true}) {
    auto packet = platform::readUDPPacket({bytes, size}, trustChecksum);
    if (packet &&
        (packet->payload.data() < bytes + 28 || packet->payload.data() + packet->payload.size() > bytes + size)) {
      std::abort();
    }
  }
  return 0;
}
