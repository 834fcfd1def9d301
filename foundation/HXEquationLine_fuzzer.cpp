// Lines of anybody: the sides are no longer than the line, and what has no need of quotes can be put together again.
#include <cstdint>
#include <cstdlib>

#include "foundation/HXEquationLine.h"
#include "foundation/detail/HXUnicode.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::string_view line(reinterpret_cast<const char*>(bytes), size);
  auto equation = hx::splitEquationLine(line);
  if (!equation) return 0;
  if (equation->key.size() + equation->value.size() >= size) std::abort();
  if (line.find_first_of("\"'\\") == std::string_view::npos) {
    if (hx::detail::trimmed(equation->key) != equation->key || hx::detail::trimmed(equation->value) != equation->value)
      std::abort();
    auto again = hx::splitEquationLine(equation->key + "= " + equation->value + ' ');
    if (again != equation) std::abort();
  }
  auto folded = hx::detail::lowercase(line);
  if (hx::detail::lowercase(folded) != folded) std::abort();
  return 0;
}
