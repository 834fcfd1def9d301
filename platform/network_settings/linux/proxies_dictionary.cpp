#include "platform/network_settings/linux/proxies_dictionary.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json.hpp>
#include <iterator>

#include "platform/base/json_text.h"
#include "platform/network_settings/linux/proxy_script.h"

namespace platform {

namespace json = boost::json;

bool isSwitchedOn(const json::object& proxies, const std::string& key) {
  const auto* value = proxies.if_contains(key);
  return value && ((value->is_bool() && value->get_bool()) || (value->is_number() && value->to_number<double>() != 0));
}

std::string textOf(const std::optional<ProxyAddress>& proxy) {
  return proxy ? fmt::format("{}:{}", proxy->host, proxy->port) : std::string();
}

Result<std::optional<ProxyAddress>> fixedProxy(const json::object& proxies, const std::string& kind) {
  if (!isSwitchedOn(proxies, kind + "Enable")) return std::nullopt;
  auto host = proxyHost(std::string(textMember(proxies, kind + "Proxy")));
  if (host.empty()) return Failure(0, kind + "Proxy is not a host");
  const auto* port = proxies.if_contains(kind + "Port");
  boost::system::error_code error;
  auto number = port ? port->to_number<std::uint16_t>(error) : std::uint16_t{0};
  if (error || number == 0) return Failure(0, kind + "Port is not a port");
  return ProxyAddress{.host = std::move(host), .port = number};
}

std::vector<std::string> proxyExceptions(const json::object& proxies) {
  std::vector<std::string> exceptions;
  const auto* list = proxies.if_contains("ExceptionsList");
  if (const auto* array = list ? list->if_array() : nullptr) {
    std::transform(array->begin(), array->end(), std::back_inserter(exceptions),
                   [](const json::value& exception) { return std::string(textOf(&exception)); });
  }
  return exceptions;
}

bool isPlainURL(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7F'; });
}

}  // namespace platform
