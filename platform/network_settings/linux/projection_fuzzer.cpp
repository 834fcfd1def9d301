// Fuzzes proxies: generated scripts differ only in their first four lines, and no text there can end a string.
#include <algorithm>
#include <boost/json.hpp>
#include <cstdlib>

#include "platform/network_settings/linux/desktop_proxy.h"
#include "platform/network_settings/linux/projection.h"
#include "platform/network_settings/linux/proxy_script.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

/// The script after its first four lines.
std::string_view bodyOf(std::string_view script) {
  for (int line = 0; line < 4; ++line) script.remove_prefix(script.find('\n') + 1);
  return script;
}

void checkScript(std::string_view script) {
  static const std::string empty = platform::proxyScript({});
  require(bodyOf(script) == bodyOf(empty));
  std::string_view head = script.substr(0, script.size() - bodyOf(script).size());
  require(head.starts_with("var http = \"") && std::count(head.begin(), head.end(), '\n') == 4);
  bool isInside = false;
  for (char c : head) {
    if (c == '"') isInside = !isInside;
    bool isWordLike = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    require(isWordLike || std::string_view(" \".-_*?:;/[]").find(c) != std::string_view::npos ||
            (!isInside && std::string_view("=,\n").find(c) != std::string_view::npos));
    require(c != '\n' || !isInside);
  }
}

bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7F'; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  boost::system::error_code error;
  auto value = boost::json::parse({reinterpret_cast<const char*>(data), size}, error);
  if (error || !value.is_object()) return 0;
  if (auto setting = platform::projectProxies(value.get_object())) {
    const auto& url = setting->pacURL;
    require(setting->automatic == (url.empty() != setting->pacScript.empty()));
    require(std::all_of(url.begin(), url.end(), [](char c) { return c > ' ' && c < '\x7F'; }));
    const auto* own = value.get_object().if_contains("ProxyAutoConfigJavaScript");
    bool isOwn = own && own->is_string() && std::string_view(own->get_string()) == setting->pacScript;
    if (!setting->pacScript.empty() && !isOwn) checkScript(setting->pacScript);
  }
  if (auto setting = platform::projectIPv4(value.get_object())) require(setting->prefix <= 32);
  for (const auto& [path, setting] : platform::dconfValues(platform::desktopProxy(value.get_object()))) {
    if (const auto* text = std::get_if<std::string>(&setting)) require(isPlain(*text));
    if (const auto* texts = std::get_if<std::vector<std::string>>(&setting)) {
      require(std::all_of(texts->begin(), texts->end(), isPlain));
    }
  }
  return 0;
}
