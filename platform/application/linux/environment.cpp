#include "platform/application/linux/environment.h"

#include <fmt/format.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <set>

namespace platform {

namespace {

constexpr std::size_t maximumSize = 65'536;  // bytes

constexpr std::array<std::string_view, 15> keptNames{
    "HOME",       "USER",         "LOGNAME",         "SHELL",           "PATH",
    "TZ",         "LANG",         "LANGUAGE",        "DISPLAY",         "WAYLAND_DISPLAY",
    "XAUTHORITY", "ICEAUTHORITY", "SESSION_MANAGER", "DESKTOP_SESSION", "DBUS_SESSION_BUS_ADDRESS"};
constexpr std::array<std::string_view, 2> keptPrefixes{"XDG_", "LC_"};

bool isKept(std::string_view name) {
  constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
  if (name.find_first_not_of(letters) != name.npos) return false;
  return std::ranges::find(keptNames, name) != keptNames.end() ||
         std::ranges::any_of(keptPrefixes, [&](auto prefix) { return name.starts_with(prefix); });
}

void fillIn(std::vector<std::string>& environment, const char* name, const char* value) {
  if (!valueOf(environment, name).empty()) return;
  std::erase(environment, fmt::format("{}=", name));
  environment.push_back(fmt::format("{}={}", name, value));
}

}  // namespace

std::vector<std::string> applicationEnvironment(std::string_view bytes) {
  std::vector<std::string> kept;
  std::set<std::string_view> names;
  std::size_t size = 0;
  for (std::size_t end; (end = bytes.find('\0')) != bytes.npos; bytes.remove_prefix(end + 1)) {
    auto variable = bytes.substr(0, end);
    auto name = variable.substr(0, variable.find('='));
    if (name.size() == variable.size() || !isKept(name) || size + variable.size() > maximumSize) continue;
    if (!names.insert(name).second) continue;
    size += variable.size();
    kept.emplace_back(variable);
  }
  return kept;
}

std::string_view valueOf(const std::vector<std::string>& environment, std::string_view name) {
  for (std::string_view variable : environment) {
    if (variable.starts_with(name) && variable.substr(name.size()).starts_with('=')) {
      return variable.substr(name.size() + 1);
    }
  }
  return {};
}

void completeEnvironment(std::vector<std::string>& environment, uid_t user) {
  std::array<char, 16'384> buffer;
  passwd entry;
  passwd* found = nullptr;
  if (getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
    fillIn(environment, "HOME", found->pw_dir);
    fillIn(environment, "USER", found->pw_name);
    fillIn(environment, "LOGNAME", found->pw_name);
    fillIn(environment, "SHELL", found->pw_shell);
  }
  fillIn(environment, "PATH", "/usr/local/bin:/usr/bin:/bin");
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace platform
