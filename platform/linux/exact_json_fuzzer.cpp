// What is read is read again from what is written of it; and nothing is read that the ordinary parser refuses.
#include <boost/json.hpp>
#include <cstdlib>

#include "platform/linux/exact_json.h"

namespace json = boost::json;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  json::parse_options options;
  options.max_depth = platform::exactJSONMaximumDepth;
  json::error_code error;
  auto ordinary = json::parse({text.data(), text.size()}, error, {}, options);
  try {
    auto value = platform::parseExactJSON(text);
    if (error || value.kind() != ordinary.kind()) std::abort();
    if (platform::parseExactJSON(json::serialize(value)) != value) std::abort();
  } catch (const boost::system::system_error& refusal) {
    if (!error && refusal.code() != json::error::exponent_overflow) std::abort();
  }
  return 0;
}
