#include <dlfcn.h>
#include <link.h>

#include "platform/system/call_stack.h"

namespace platform {

MainImage mainImage() {
  MainImage image{};
  // The first object reported is the main executable (dl_iterate_phdr(3)).
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* result) {
        // The segments that are loaded ascend (elf(5)); the first one begins with the file's first byte.
        const auto* header = info->dlpi_phdr;
        while (header->p_type != PT_LOAD) ++header;
        *static_cast<MainImage*>(result) = {.slide = info->dlpi_addr, .loadAddress = info->dlpi_addr + header->p_vaddr};
        return 1;
      },
      &image);
  return image;
}

}  // namespace platform
