#include "platform/network_settings/linux/desktop_database.h"

#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>

namespace platform {

namespace json = boost::json;

namespace {

constexpr char database[] = "dconf", oldDatabase[] = "dconf.old", plainWords[] = "proxies.json";

}  // namespace

Result<DesktopDatabase> DesktopDatabase::open(const std::string& service) {
  auto folder = PrivateFolder::open("/run/" + service, PrivateFolder::Readers::everybody);
  if (!folder) return folder.error();
  return DesktopDatabase(std::move(*folder));
}

Result<void> DesktopDatabase::publish(const DesktopProxy& proxy, const std::string& source,
                                      const std::vector<std::string>& services) const {
  auto replaced = replace(proxy, source, services);
  if (replaced) return replaced;
  // The published database no longer applies. Invalidating it works even on a full disk.
  auto taken = attempt([this] {
    invalidate(openPublished().value()).value();
    folder_.remove(plainWords).value();
  });
  return taken ? replaced : taken;
}

Result<void> DesktopDatabase::replace(const DesktopProxy& proxy, const std::string& source,
                                      const std::vector<std::string>& services) const {
  return attempt([&] {
    auto words = inPlainWords(proxy);
    if (!proxy.isOff()) words["service"] = source;
    if (!services.empty()) words["services"] = json::value_from(services);
    invalidate(folder_.openToWrite(oldDatabase).value()).value();  // left by a killed helper
    const auto old = openPublished().value();
    folder_.link(database, oldDatabase).value();
    folder_.replace(database, gvdbFile(dconfValues(proxy))).value();
    invalidate(old).value();
    folder_.remove(oldDatabase).value();
    folder_.replace(plainWords, json::serialize(words) + "\n").value();
  });
}

Result<FileDescriptor> DesktopDatabase::openPublished() const {
  return folder_.openToWrite(database);
}

Result<void> invalidate(const FileDescriptor& file) {
  static constexpr char signature[8] = {};  // without its signature, dconf treats a database as replaced
  if (!file) return {};
  return resultOfCall(static_cast<int>(pwrite(file.get(), signature, sizeof signature, 0)));
}

std::string desktopDatabaseName(std::string service) {
  std::replace_if(
      service.begin(), service.end(), [](char c) { return c == '.' || c == '-'; }, '_');
  return service;
}

Result<void> announce(sd_bus* bus, const std::string& service) {
  return attempt([&] {
    check(sd_bus_emit_signal(bus, ("/ca/desrt/dconf/Writer/" + desktopDatabaseName(service)).c_str(),
                             "ca.desrt.dconf.Writer", "WritabilityNotify", "s", "/system/proxy/"));
  });
}

}  // namespace platform
