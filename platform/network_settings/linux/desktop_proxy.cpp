#include "platform/network_settings/linux/desktop_proxy.h"

#include <algorithm>
#include <boost/json.hpp>

#include "platform/base/json_text.h"
#include "platform/network_settings/linux/proxy_script.h"

namespace platform {

namespace json = boost::json;

namespace {

/// The kinds of proxies: the name in dconf, then the name in a proxies dictionary.
const std::map<std::string, std::string> kinds{
    {"http", "HTTP"}, {"https", "HTTPS"}, {"ftp", "FTP"}, {"socks", "SOCKS"}};

/// An exception in the form that all programs understand; empty if there is none.
std::string desktopException(const std::string& given) {
  auto exception = proxyException(given);
  if (exception.starts_with('.')) return "*" + exception;
  if (auto slash = exception.find('/'); slash != exception.npos && exception.find(':') == exception.npos) {
    for (auto dots = std::count(exception.begin(), exception.end(), '.'); dots < 3; ++dots)
      exception.insert(slash, ".0");
  }
  return exception;
}

}  // namespace

DesktopProxy desktopProxy(const json::object& proxies) {
  DesktopProxy result;
  if (isSwitchedOn(proxies, "ProxyAutoConfigEnable")) {
    auto url = textMember(proxies, "ProxyAutoConfigURLString");
    if (isPlainURL(url) && (url.starts_with("http://") || url.starts_with("https://"))) result.pacURL = url;
    return result;
  }
  for (const auto& [name, kind] : kinds) {
    auto proxy = fixedProxy(proxies, kind);
    if (proxy && *proxy) result.proxies[name] = **proxy;
  }
  for (const auto& given : proxyExceptions(proxies)) {
    if (auto exception = desktopException(given); !exception.empty()) result.exceptions.push_back(exception);
  }
  // "<local>" is Chromium's notation.
  if (isSwitchedOn(proxies, "ExcludeSimpleHostnames")) result.exceptions.emplace_back("<local>");
  return result;
}

bool hasOnlyInlineScript(const json::object& proxies) {
  return isSwitchedOn(proxies, "ProxyAutoConfigEnable") && textMember(proxies, "ProxyAutoConfigURLString").empty() &&
         !textMember(proxies, "ProxyAutoConfigJavaScript").empty();
}

std::map<std::string, GVDBValue> dconfValues(const DesktopProxy& proxy) {
  if (proxy.isOff()) return {};
  std::map<std::string, GVDBValue> values{{"/system/proxy/mode", std::string(proxy.pacURL.empty() ? "manual" : "auto")},
                                          {"/system/proxy/autoconfig-url", proxy.pacURL},
                                          {"/system/proxy/ignore-hosts", proxy.exceptions},
                                          {"/system/proxy/use-same-proxy", false}};
  for (const auto& [name, kind] : kinds) {
    auto found = proxy.proxies.find(name);
    const auto address = found == proxy.proxies.end() ? ProxyAddress() : found->second;
    values["/system/proxy/" + name + "/host"] = address.host;
    values["/system/proxy/" + name + "/port"] = std::int32_t{address.port};
  }
  return values;
}

json::object inPlainWords(const DesktopProxy& proxy) {
  if (proxy.isOff()) return {{"mode", "none"}};
  if (!proxy.pacURL.empty()) return {{"mode", "auto"}, {"pac", proxy.pacURL}};
  json::object object{{"mode", "manual"}};
  for (const auto& [name, address] : proxy.proxies) object[name] = textOf(address);
  object["exceptions"] = json::value_from(proxy.exceptions);
  return object;
}

}  // namespace platform
