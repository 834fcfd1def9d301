// Fuzzes frames of a hostile peer: a decoded frame survives a round trip.
#include <cstdlib>

#include "platform/ipc/linux/frames.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace platform::ipc;
  FrameReader reader;
  reader.append({bytes, size});
  while (auto frame = reader.next()) {
    auto encoded = encodeFrame(*frame);
    if (!encoded) std::abort();
    auto again = decodeFrame(std::span(*encoded).subspan(4));
    if (!again || again->id != frame->id || !(again->dictionary == frame->dictionary)) std::abort();
  }
  return 0;
}
