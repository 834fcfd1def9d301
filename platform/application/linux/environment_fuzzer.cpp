#include <cstdlib>
#include <set>

#include "platform/application/linux/environment.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::set<std::string> names;
  std::string all;
  for (const auto& variable : platform::applicationEnvironment(bytes)) {
    auto length = variable.find('=');
    bool isGood = length != variable.npos && variable.find('\0') == variable.npos && !variable.starts_with("LD_") &&
                  bytes.find(variable) != bytes.npos && names.insert(variable.substr(0, length)).second;
    if (!isGood) std::abort();
    all += variable + '\0';
  }
  // A second pass keeps everything that the first one kept.
  if (platform::applicationEnvironment(all).size() != names.size()) std::abort();
  return 0;
}
