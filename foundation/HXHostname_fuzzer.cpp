// Hosts and ports of anybody: what the rules take for an address or a host with a port splits accordingly.
#include <cstdlib>

#include "foundation/HXHostname.h"
#include "foundation/HXIPAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(bytes), size);
  for (bool mustExist : {false, true}) {
    std::optional<std::string> hostname;
    std::uint16_t port;
    getHostname(text, &hostname, &port, 7, mustExist);
    if (hostname && text.find(*hostname) == std::string_view::npos) std::abort();
    if (!mustExist && !hostname && !text.starts_with('[')) std::abort();
  }
  if (isValidHostWithPort(text)) {
    std::optional<std::string> hostname, again;
    std::uint16_t port, portAgain;
    getHostname(text, &hostname, &port, 0, true);
    getHostname(hostStringWithHostname(hostname.value(), port), &again, &portAgain, 0, true);
    if (again != hostname || portAgain != port || port == 0) std::abort();
  }
  if (isIPv4Address(text) && stringWithIPAddressUsingHostByteOrder(IPAddressUsingHostByteOrder(text)) != text)
    std::abort();
  if (isIPv4MappedIPv6Address(text) && !isIPv4Address(mappedIPv6AddressToIPv4Address(text).value())) std::abort();
  if (isIPCIDRString(text) && isIPAddress(text)) std::abort();
  for (bool flag : {false, true}) {
    if (isValidHostnameAllowsPort(text, flag) && !isValidHostnameAllowsWildcard(text, true, flag)) std::abort();
    if (isValidIPAddressAllowsPort(text, flag) && text.empty()) std::abort();
  }
  auto half = text.substr(0, size / 2);
  isHostnameMatchPattern(text.substr(half.size()), half);
  // A name without the characters of patterns matches itself.
  if (text.find_first_of(std::string_view("*?[\0", 4)) == std::string_view::npos && !isHostnameMatchPattern(text, text))
    std::abort();
  return 0;
}
