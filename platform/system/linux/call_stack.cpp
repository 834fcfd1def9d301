#include "platform/system/call_stack.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace platform {

std::vector<std::string> callStackSymbols() {
  std::array<void*, 128> frames;
  int count = backtrace(frames.data(), static_cast<int>(frames.size()));
  std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(frames.data(), count), &std::free);
  std::vector<std::string> result;
  for (int index = 1; symbols && index < count; ++index) result.emplace_back(symbols.get()[index]);
  return result;
}

MainImage mainImage() {
  MainImage image{};
  // The first object reported is the main executable (dl_iterate_phdr(3)).
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* result) {
        auto& found = *static_cast<MainImage*>(result);
        found.slide = info->dlpi_addr;
        for (int index = 0; index < info->dlpi_phnum; ++index) {
          const auto& header = info->dlpi_phdr[index];
          if (header.p_type == PT_LOAD && header.p_offset == 0) found.loadAddress = info->dlpi_addr + header.p_vaddr;
        }
        return 1;
      },
      &image);
  return image;
}

}  // namespace platform
