// Requirement texts of any kind: parsed or refused, and what was parsed can be evaluated.
#include <string_view>

#include "platform/code_signing/linux/requirement.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace platform::code_signing;
  std::string problem;
  auto requirement = CodeRequirement::parse({reinterpret_cast<const char*>(bytes), size}, &problem);
  if (requirement) requirement->isSatisfiedBy({});
  if (requirement.has_value() != problem.empty()) __builtin_trap();
  return 0;
}
