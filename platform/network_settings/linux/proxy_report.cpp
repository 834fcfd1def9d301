#include "platform/network_settings/proxy_report.h"

#include <fmt/format.h>

#include <boost/json.hpp>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "platform/network_settings/linux/desktop_database.h"
#include "platform/network_settings/linux/desktop_proxies.h"
#include "platform/network_settings/linux/network_manager.h"

namespace platform {

namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string outputOf(const char* command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command, "re"), &pclose);
  char line[256] = "";
  if (!pipe || !std::fgets(line, sizeof line, pipe.get())) return {};
  std::string text = line;
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string publishedFile(const std::string& service) {
  return fmt::format("/run/{}/proxies.json", service);
}

ProxyPlace desktop(const std::string& service) {
  auto words = contentOf(publishedFile(service));
  boost::system::error_code error;
  if (auto value = boost::json::parse(words, error); value.is_object()) {
    value.get_object().erase("services");
    words = boost::json::serialize(value);
  }
  const auto name = desktopDatabaseName(service);
  bool isRead = contentOf("/etc/dconf/profile/user").find("system-db:" + name) != std::string::npos &&
                !contentOf("/etc/dconf/db/" + name).empty();
  return {.name = "all users' desktops",
          .service = {},
          .setting = words.empty() ? "none" : words,
          .readers = isRead ? "Chromium and Firefox, GNOME's and other GLib programs"
                            : fmt::format("nobody: /etc/dconf/profile/user does not name {}", name)};
}

/// The effective setting for the caller, including an administrator's locks and the user's own profile.
ProxyPlace own() {
  auto mode = outputOf("gsettings get org.gnome.system.proxy mode 2>/dev/null");
  return {.name = "your desktop",
          .service = {},
          .setting = mode.empty() ? "unknown: gsettings gives no answer" : "mode " + mode,
          .readers = "the same programs, when you start them"};
}

std::string inWords(const ProxySetting& proxy) {
  if (!proxy.automatic) return "none";
  return proxy.pacURL.empty() ? "a PAC script" : "PAC " + proxy.pacURL;
}

}  // namespace

std::vector<ProxyPlace> proxyPlaces(const std::string& service) {
  std::vector<ProxyPlace> places{desktop(service), own()};
  const char* readers = "pacrunner, and programs that ask it";
  auto connections = NetworkManager().connections();
  if (!connections) {
    places.push_back({.name = "NetworkManager",
                      .service = {},
                      .setting = fmt::format("unknown: {}", connections.error().what()),
                      .readers = readers});
    return places;
  }
  for (const auto& connection : *connections) {
    places.push_back({.name = fmt::format("NetworkManager, {} ({})", connection.name, connection.uuid),
                      .service = connection.uuid,
                      .setting = inWords(connection.proxy),
                      .readers = readers});
  }
  return places;
}

std::set<std::string> servicesWithProxies(const std::string& service) {
  std::set<std::string> services;
  try {
    const auto words = boost::json::parse(contentOf(publishedFile(service)));
    for (const auto& id : words.at("services").as_array()) services.emplace(id.as_string());
  } catch (const std::exception&) {
    // No client has set any.
  }
  return services;
}

}  // namespace platform
