#include <mach-o/dyld.h>

#include "platform/system/call_stack.h"

namespace platform {

MainImage mainImage() {
  // Image 0 is the main executable (dyld(3)).
  return {.slide = static_cast<std::uintptr_t>(_dyld_get_image_vmaddr_slide(0)),
          .loadAddress = reinterpret_cast<std::uintptr_t>(_dyld_get_image_header(0))};
}

}  // namespace platform
