#include "cli/proxy_arguments.h"

#include <fmt/format.h>

#include <boost/json.hpp>
#include <charconv>
#include <map>
#include <sstream>
#include <stdexcept>

namespace brimo {

namespace json = boost::json;

namespace {

const std::map<std::string, std::string> kinds{{"http", "HTTP"}, {"https", "HTTPS"}, {"socks", "SOCKS"}};

void setFixedProxy(json::object& proxies, const std::string& kind, const std::string& value) {
  auto colon = value.rfind(':');
  std::string host = value.substr(0, colon);
  std::uint16_t port = 0;
  if (colon != value.npos) {
    const char* end = value.data() + value.size();
    auto [rest, error] = std::from_chars(value.data() + colon + 1, end, port);
    if (error != std::errc() || rest != end) port = 0;
  }
  bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (host.empty() || port == 0 || (host.find(':') != host.npos) != bracketed) {
    throw std::invalid_argument(fmt::format("\"{}\" is not a host and port: write proxy.example:8080", value));
  }
  proxies[kind + "Enable"] = 1;
  proxies[kind + "Proxy"] = host;
  proxies[kind + "Port"] = port;
}

json::array splitAtCommas(const std::string& text) {
  json::array parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) {
    if (!part.empty()) parts.emplace_back(part);
  }
  return parts;
}

}  // namespace

ProxyArguments parseProxyArguments(const std::vector<std::string>& words) {
  ProxyArguments result;
  if (words.size() == 1 && words[0] == "off") return result;
  for (const auto& word : words) {
    auto equals = word.find('=');
    auto key = word.substr(0, equals), value = equals == word.npos ? "" : word.substr(equals + 1);
    if (auto kind = kinds.find(key); kind != kinds.end()) {
      setFixedProxy(result.proxies, kind->second, value);
    } else if (key == "pac" && !value.empty()) {
      result.proxies["ProxyAutoConfigEnable"] = 1;
      result.proxies["ProxyAutoConfigURLString"] = value;
    } else if (key == "except") {
      result.proxies["ExceptionsList"] = splitAtCommas(value);
    } else if (word == "except-simple") {
      result.proxies["ExcludeSimpleHostnames"] = 1;
    } else if (word == "temporary") {
      result.cleanup = false;
    } else {
      throw std::invalid_argument(fmt::format("\"{}\" is no proxy setting", word));
    }
  }
  return result;
}

}  // namespace brimo
