#include "platform/network_settings/linux/projection.h"

#include <arpa/inet.h>

#include <bit>
#include <boost/json.hpp>
#include <optional>

#include "platform/base/json_text.h"
#include "platform/network_settings/linux/proxies_dictionary.h"
#include "platform/network_settings/linux/proxy_script.h"

namespace platform {

namespace json = boost::json;

namespace {

/// The text in the array under a key; empty unless the array holds one text and nothing else.
std::string_view onlyText(const json::object& object, const char* key) {
  const auto* value = object.if_contains(key);
  const auto* array = value ? value->if_array() : nullptr;
  return array && array->size() == 1 ? textOf(&array->front()) : std::string_view();
}

std::optional<std::uint32_t> addressNumber(const std::string& text) {
  in_addr address{};
  if (text.find('\0') != text.npos || inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

ProxySetting proxySetting(const json::object& proxies) {
  if (isSwitchedOn(proxies, "ProxyAutoConfigEnable")) {
    std::string url(textMember(proxies, "ProxyAutoConfigURLString"));
    std::string script(textMember(proxies, "ProxyAutoConfigJavaScript"));
    if (url.empty() && !script.empty()) {
      bool isScript = script.find("FindProxyForURL") != script.npos && script.find('\0') == script.npos;
      if (!isScript) throw Failure(0, "ProxyAutoConfigJavaScript does not define FindProxyForURL");
      return {.automatic = true, .pacURL = {}, .pacScript = std::move(script)};
    }
    if (!isPlainURL(url)) throw Failure(0, "ProxyAutoConfigURLString is not a URL");
    return {.automatic = true, .pacURL = std::move(url), .pacScript = {}};
  }
  ProxyRules rules{.http = textOf(fixedProxy(proxies, "HTTP").value()),
                   .https = textOf(fixedProxy(proxies, "HTTPS").value()),
                   .socks = textOf(fixedProxy(proxies, "SOCKS").value()),
                   .exceptions = proxyExceptions(proxies),
                   .excludesSimpleHostnames = isSwitchedOn(proxies, "ExcludeSimpleHostnames")};
  if (rules.http.empty() && rules.https.empty() && rules.socks.empty()) return {};
  return {.automatic = true, .pacURL = {}, .pacScript = proxyScript(rules)};
}

IPv4Setting ipv4Setting(const json::object& entity) {
  if (textMember(entity, "ConfigMethod") != "Manual") throw Failure(0, "ConfigMethod is not Manual");
  std::string address(onlyText(entity, "Addresses")), router(textMember(entity, "Router"));
  auto mask = addressNumber(std::string(onlyText(entity, "SubnetMasks")));
  if (!addressNumber(address)) throw Failure(0, "Addresses does not hold one IPv4 address");
  if (addressNumber(router).value_or(0) == 0) throw Failure(0, "Router is not a router's IPv4 address");
  auto prefix = static_cast<std::uint32_t>(std::countl_one(mask.value_or(0)));
  if (!mask || static_cast<std::uint32_t>(std::popcount(*mask)) != prefix) {
    throw Failure(0, "SubnetMasks does not hold one IPv4 mask");
  }
  return {.address = std::move(address), .prefix = prefix, .gateway = std::move(router)};
}

}  // namespace

Result<ProxySetting> projectProxies(const json::object& proxies) {
  return attempt([&] { return proxySetting(proxies); });
}

Result<IPv4Setting> projectIPv4(const json::object& entity) {
  return attempt([&] { return ipv4Setting(entity); });
}

}  // namespace platform
