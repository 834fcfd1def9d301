// Arbitrary requirement texts are either parsed or rejected, and parsed ones can be evaluated.
#include <string_view>

#include "platform/code_signing/linux/requirement.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace platform::code_signing;
  auto requirement = CodeRequirement::parse({reinterpret_cast<const char*>(bytes), size});
  if (requirement) requirement->isSatisfiedBy({});
  return 0;
}
