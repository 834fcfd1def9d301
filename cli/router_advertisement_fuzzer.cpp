// Fuzzes advertisements from hostile routers: every decoded one must be safe to print on a terminal.
#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <cctype>
#include <cstdlib>

#include "cli/router_advertisement_text.h"
#include "client/router_advertisement.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::array<std::uint8_t, 28> address{28, 30};
  auto decoded = brimo::decodeRouterAdvertisement({bytes, size}, address);
  if (!decoded) return 0;
  auto text = routerText(*decoded) + boost::json::serialize(routerObject(*decoded));
  if (!std::all_of(text.begin(), text.end(), [](unsigned char c) { return c == '\n' || std::isprint(c); }))
    std::abort();
  return 0;
}
