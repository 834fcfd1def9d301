// The folder through which programs of a desktop learn of proxies: a dconf database, and the same in plain words.
#pragma once

#include <string>

#include "platform/base/linux/system_bus.h"
#include "platform/network_settings/linux/desktop_proxy.h"
#include "platform/network_settings/linux/private_folder.h"

namespace platform {

/// Files that everybody may read. Every failure is a std::exception with a sentence.
///
/// "dconf" is the database, "proxies.json" the plain words. "dconf.old" is a second name of the database that is being
/// replaced: as long as its first bytes are there, who has it mapped takes it for the present one.
class DesktopDatabase {
 public:
  /// The folder in /run of a service, which is made when it is missing.
  explicit DesktopDatabase(const std::string& service);

  /// Publishes a proxy in the place of whatever was published before, from `source`, a network service. When that
  /// fails, no proxy is published. Programs that run look again when they are told to: announce().
  void publish(const DesktopProxy& proxy, const std::string& source) const;

  /// Where a record of the services can lie: its life is the database's.
  const PrivateFolder& folder() const { return folder_; }

 private:
  void replace(const DesktopProxy& proxy, const std::string& source) const;

  PrivateFolder folder_;
};

/// What dconf calls the database of a service: its name in characters that a D-Bus path may have.
std::string desktopDatabaseName(std::string service);

/// Tells the programs of all users over the system bus that a service's database has changed. Returns 0 or a negative
/// errno.
int announce(sd_bus* bus, const std::string& service);

}  // namespace platform
