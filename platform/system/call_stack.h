// Call stacks for crash reports.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// The calling thread's stack, one text per frame, innermost first.
std::vector<std::string> callStackSymbols();

/// The place in memory of the main executable.
struct MainImage {
  std::uintptr_t slide;        ///< difference between the load address and the address that the image was linked for
  std::uintptr_t loadAddress;  ///< address of the image's first byte
};
MainImage mainImage();

}  // namespace platform
