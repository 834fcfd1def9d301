// Call stacks, for reports of faults.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// One text a frame of the calling thread's stack, the innermost first.
std::vector<std::string> callStackSymbols();

/// Where the main executable was loaded.
struct MainImage {
  std::uintptr_t slide;        ///< load address less the address it was linked for
  std::uintptr_t loadAddress;  ///< of the image's first byte
};
MainImage mainImage();

}  // namespace platform
