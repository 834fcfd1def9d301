// JSON of a hostile client: whatever is accepted can be written, and what is written is accepted. (Not as the very
// same: Boost.JSON may miss the last bit of a number.)
#include <cstdlib>

#include "foundation/HXJSON.h"
#include "foundation/HXLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  HXSetLogEnabled(false);
  auto value = HX_JSONObject(HXData(std::string_view(reinterpret_cast<const char*>(bytes), size)));
  if (!value) return 0;
  auto text = HX_JSONData(*value);
  if (!text) return 0;  // a number too large for a double
  if (!HX_JSONObject(HXData(*text))) std::abort();
  return 0;
}
