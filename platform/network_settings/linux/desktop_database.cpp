#include "platform/network_settings/linux/desktop_database.h"

#include <algorithm>
#include <boost/json.hpp>
#include <exception>

namespace platform {

namespace json = boost::json;

namespace {

constexpr char database[] = "dconf", oldDatabase[] = "dconf.old", plainWords[] = "proxies.json";
constexpr std::size_t signatureSize = 8;  // bytes; dconf takes a database without it for one that has been replaced

}  // namespace

DesktopDatabase::DesktopDatabase(const std::string& service)
    : folder_("/run/" + service, PrivateFolder::Readers::everybody) {}

void DesktopDatabase::publish(const DesktopProxy& proxy, const std::string& source) const {
  try {
    replace(proxy, source);
  } catch (...) {
    // What is published already is no longer so. This takes no room on a disk that is full.
    folder_.zeroHead(database, signatureSize);
    folder_.remove(plainWords);
    throw;
  }
}

void DesktopDatabase::replace(const DesktopProxy& proxy, const std::string& source) const {
  auto words = inPlainWords(proxy);
  if (!proxy.isOff()) words["service"] = source;
  folder_.zeroHead(oldDatabase, signatureSize);  // of one that was killed in between
  folder_.link(database, oldDatabase);
  folder_.replace(database, gvdbFile(dconfValues(proxy)));
  folder_.zeroHead(oldDatabase, signatureSize);
  folder_.remove(oldDatabase);
  folder_.replace(plainWords, json::serialize(words) + "\n");
}

std::string desktopDatabaseName(std::string service) {
  std::replace_if(
      service.begin(), service.end(), [](char c) { return c == '.' || c == '-'; }, '_');
  return service;
}

int announce(sd_bus* bus, const std::string& service) {
  return sd_bus_emit_signal(bus, ("/ca/desrt/dconf/Writer/" + desktopDatabaseName(service)).c_str(),
                            "ca.desrt.dconf.Writer", "WritabilityNotify", "s", "/system/proxy/");
}

}  // namespace platform
