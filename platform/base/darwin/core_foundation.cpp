#include "platform/base/darwin/core_foundation.h"

namespace platform {

CFOwner<CFStringRef> makeString(std::string_view text) {
  return CFOwner<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                                      static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

std::string textOf(CFStringRef string) {
  if (!string) return {};
  const CFRange all{0, CFStringGetLength(string)};
  CFIndex length = 0;
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false, nullptr, 0, &length);
  std::string text(static_cast<std::size_t>(length), '\0');
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false, reinterpret_cast<UInt8*>(text.data()), length,
                   nullptr);
  return text;
}

}  // namespace platform
