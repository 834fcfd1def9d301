#include "cli/proxy_arguments.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace brimo {

namespace {

const std::map<std::string, std::optional<ProxyServer> Proxies::*> kinds{
    {"http", &Proxies::http}, {"https", &Proxies::https}, {"socks", &Proxies::socks}};

/// Whether a text is a valid proxy host: a name, an IPv4 address or an IPv6 address in brackets.
bool isHost(const std::string& text) {
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
    in6_addr address;
    return inet_pton(AF_INET6, text.substr(1, text.size() - 2).c_str(), &address) == 1;
  }
  auto isPlain = [](unsigned char c) { return std::isalnum(c) || c == '.' || c == '-' || c == '_'; };
  return !text.empty() && std::all_of(text.begin(), text.end(), isPlain);
}

ProxyServer proxyServer(const std::string& value) {
  auto colon = value.rfind(':');
  auto host = value.substr(0, colon);
  std::uint16_t port = 0;
  if (colon != value.npos) {
    const char* end = value.data() + value.size();
    auto [rest, error] = std::from_chars(value.data() + colon + 1, end, port);
    if (error != std::errc() || rest != end) port = 0;
  }
  if (port == 0 || !isHost(host)) {
    throw std::invalid_argument(fmt::format("\"{}\" is not a host and port: write proxy.example:8080", value));
  }
  if (host.front() == '[') host = host.substr(1, host.size() - 2);
  return {host, port};
}

std::string scriptURL(const std::string& value) {
  auto hasScheme = [&](std::string_view scheme) { return value.size() > scheme.size() && value.starts_with(scheme); };
  bool isURL = hasScheme("http://") || hasScheme("https://") || hasScheme("file:///") || hasScheme("data:");
  auto isGraphic = [](unsigned char c) { return std::isgraph(c) != 0; };
  if (!isURL || !std::all_of(value.begin(), value.end(), isGraphic)) {
    throw std::invalid_argument(fmt::format("\"{}\" is not the URL of a script: write http://host/proxy.pac", value));
  }
  return value;
}

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) {
    auto isGraphic = [](unsigned char c) { return std::isgraph(c) != 0; };
    if (!std::all_of(part.begin(), part.end(), isGraphic)) {
      throw std::invalid_argument(fmt::format("\"{}\" is not a host name or address", part));
    }
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

}  // namespace

ProxyArguments parseProxyArguments(const std::vector<std::string>& words) {
  ProxyArguments result;
  if (words.size() == 1 && words[0] == "off") return result;
  std::set<std::string> keys;
  for (const auto& word : words) {
    auto equals = word.find('=');
    auto key = word.substr(0, equals), value = equals == word.npos ? "" : word.substr(equals + 1);
    if (!keys.insert(key).second) throw std::invalid_argument(fmt::format("\"{}\" is given twice", key));
    if (auto kind = kinds.find(key); kind != kinds.end()) {
      result.proxies.*kind->second = proxyServer(value);
    } else if (key == "pac") {
      result.proxies.automaticURL = scriptURL(value);
    } else if (key == "except") {
      result.proxies.exceptions = splitAtCommas(value);
    } else if (word == "except-simple") {
      result.proxies.exceptSimpleNames = true;
    } else if (word == "temporary") {
      result.lifetime = ProxyLifetime::untilAClientLeaves;
    } else {
      throw std::invalid_argument(fmt::format("\"{}\" is not a proxy setting", word));
    }
  }
  return result;
}

}  // namespace brimo
