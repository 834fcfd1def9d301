// Fuzzes JSON from a hostile client: the parser accepts exactly the objects and arrays that Boost's own parser accepts,
// and these survive a round trip.
#include <boost/json.hpp>
#include <cstdlib>

#include "foundation/HXJSON.h"
#include "foundation/HXLog.h"

namespace json = boost::json;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  HXSetLogEnabled(false);
  std::string_view input(reinterpret_cast<const char*>(bytes), size);
  boost::system::error_code error;
  json::parse_options options;
  options.max_depth = HXJSONMaximumDepth;
  auto ordinary = json::parse({input.data(), input.size()}, error, {}, options);
  auto value = HX_JSONObject(HXData(input));
  if (!value != (error || !(ordinary.is_object() || ordinary.is_array()))) std::abort();
  if (!value) return 0;
  auto text = HX_JSONData(*value);
  if (!text) return 0;  // a number too large for a double
  auto again = HX_JSONObject(HXData(*text));
  if (!again || *again != *value) std::abort();
  return 0;
}
