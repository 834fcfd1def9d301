#include "platform/network_settings/linux/proxy_script.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <span>
#include <string_view>

namespace platform {

namespace {

// No inserted text can end a string: proxyHost(), proxyException() and bits() let no quote, backslash or line end
// through.
constexpr char scriptFormat[] = R"(var http = "{http}", https = "{https}", other = "{other}";
var excludeSimple = {excludeSimple};
var names = [{names}];
var networks = [{networks}];

function FindProxyForURL(url, host) {{
  host = host.toLowerCase().replace(/^\[|\]$|\.$/g, "");
  var address = bits(host), i;
  if (excludeSimple && !/[.:]/.test(host)) return "DIRECT";
  for (i = 0; i < names.length; i++) if (matches(host, names[i])) return "DIRECT";
  for (i = 0; address && i < networks.length; i++) {{
    if (address.indexOf(networks[i]) === 0) return "DIRECT";
  }}
  if (/^(http|ws):/i.test(url)) return http;
  return /^(https|wss):/i.test(url) ? https : other;
}}

function matches(text, pattern) {{
  var t = 0, p = 0, star = -1, mark = 0;
  while (t < text.length) {{
    if (pattern.charAt(p) === "*") {{
      star = p++;
      mark = t;
    }} else if (p < pattern.length && (pattern.charAt(p) === "?" || pattern.charAt(p) === text.charAt(t))) {{
      p++;
      t++;
    }} else if (star >= 0) {{
      p = star + 1;
      t = ++mark;
    }} else {{
      return false;
    }}
  }}
  while (pattern.charAt(p) === "*") p++;
  return p === pattern.length;
}}

function bits(host) {{
  var v4 = /^(.*:)?(\d{{1,3}})\.(\d{{1,3}})\.(\d{{1,3}})\.(\d{{1,3}})$/.exec(host), i, result;
  if (v4) {{
    for (result = "", i = 2; i < 6; i++) {{
      if (+v4[i] > 255) return "";
      result += binary(+v4[i], 8);
    }}
    if (!v4[1]) return "4:" + result;
    host = v4[1] + parseInt(result.slice(0, 16), 2).toString(16) + ":" + parseInt(result.slice(16), 2).toString(16);
  }}
  var halves = host.split("%")[0].split("::"), head = groups(halves[0]), tail = groups(halves[1]);
  var missing = 8 - head.length - tail.length;
  if (halves.length === 2 ? missing < 1 : halves.length > 2 || missing !== 0) return "";
  while (missing-- > 0) head.push("0");
  head = head.concat(tail);
  for (result = "6:", i = 0; i < 8; i++) {{
    if (!/^[0-9a-f]{{1,4}}$/.test(head[i])) return "";
    result += binary(parseInt(head[i], 16), 16);
  }}
  return result;
}}

function groups(text) {{
  return text ? text.split(":") : [];
}}

function binary(number, digits) {{
  var text = number.toString(2);
  while (text.length < digits) text = "0" + text;
  return text;
}}
)";

bool consistsOf(std::string_view text, std::string_view others) {
  return std::all_of(text.begin(), text.end(), [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || others.find(c) != others.npos;
  });
}

std::string lowerCase(std::string text) {
  for (auto& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string bits(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (auto byte : bytes) text += fmt::format("{:08b}", byte);
  return text;
}

/// The mark of an address's family, then all bits of the address; absent if the text is not an address.
std::optional<std::string> addressBits(const std::string& text) {
  std::array<std::uint8_t, 4> v4;
  std::array<std::uint8_t, 16> v6;
  if (inet_pton(AF_INET, text.c_str(), v4.data()) == 1) return "4:" + bits(v4);
  if (inet_pton(AF_INET6, text.c_str(), v6.data()) == 1) return "6:" + bits(v6);
  return std::nullopt;
}

/// The mark of a network's family, then the bits that all its addresses share; absent if the text is neither a network
/// nor an address. Trailing zeros of an IPv4 network may be omitted.
std::optional<std::string> networkBits(const std::string& text) {
  auto slash = text.find('/');
  if (slash == text.npos) return addressBits(text);
  std::string address = text.substr(0, slash);
  if (address.find(':') == address.npos) {
    for (auto dots = std::count(address.begin(), address.end(), '.'); dots < 3; ++dots) address += ".0";
  }
  auto all = addressBits(address);
  std::size_t length = 0;
  const char* end = text.data() + text.size();
  auto [rest, error] = std::from_chars(text.data() + slash + 1, end, length);
  if (!all || error != std::errc() || rest != end || length > all->size() - 2) return std::nullopt;
  return all->substr(0, 2 + length);
}

}  // namespace

std::string proxyHost(const std::string& text) {
  if (text.size() > 255) return {};
  if (consistsOf(text, ".-_")) return text;
  auto address = consistsOf(text, ".:") ? addressBits(text) : std::nullopt;
  return address ? fmt::format("[{}]", text) : std::string();
}

std::string proxyException(const std::string& given) {
  std::string_view text = given;
  auto start = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  text = text.substr(start, text.find_last_not_of(" \t\r\n") + 1 - start);
  if (text.ends_with('.')) text.remove_suffix(1);
  if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
  return consistsOf(text, ".-_*?:/") ? std::string(text) : std::string();
}

std::string proxyScript(const ProxyRules& rules) {
  // Old programs know only "SOCKS", which means version 4 to others.
  auto socks = rules.socks.empty() ? std::string() : fmt::format("SOCKS5 {0}; SOCKS {0}", rules.socks);
  auto route = [&](const std::string& proxy) {
    if (proxy.empty()) return socks.empty() ? "DIRECT" : socks;
    return "PROXY " + proxy + (socks.empty() ? "" : "; ") + socks;
  };
  std::vector<std::string> names, networks;
  for (const auto& given : rules.exceptions) {
    const auto exception = proxyException(given);
    if (exception.empty()) continue;
    if (auto network = networkBits(exception)) {
      networks.push_back(fmt::format("\"{}\"", *network));
    } else {
      names.push_back(fmt::format("\"{}\"", lowerCase(exception)));
    }
  }
  return fmt::format(scriptFormat, fmt::arg("http", route(rules.http)), fmt::arg("https", route(rules.https)),
                     fmt::arg("other", route("")), fmt::arg("excludeSimple", rules.excludesSimpleHostnames),
                     fmt::arg("names", fmt::join(names, ", ")), fmt::arg("networks", fmt::join(networks, ", ")));
}

}  // namespace platform
