#include "platform/system/call_stack.h"

#include <execinfo.h>

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

}  // namespace platform
