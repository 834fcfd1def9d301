#include <dlfcn.h>
#include <link.h>

#include "platform/system/call_stack.h"

namespace platform {

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
