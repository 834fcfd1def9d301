// The folder through which programs of a desktop learn of proxies: a dconf database, and the same in plain words.
#pragma once

#include <string>

#include "platform/base/linux/system_bus.h"
#include "platform/network_settings/linux/desktop_proxy.h"
#include "platform/network_settings/linux/private_folder.h"

namespace platform {

/// Files that everybody may read: "dconf" is the database, "proxies.json" the plain words. "dconf.old" is a second name
/// of a database that is being replaced: as long as its first bytes are there, who has it mapped takes it for the
/// present one.
class DesktopDatabase {
 public:
  /// In the folder in /run of a service, which is made when it is missing.
  static Result<DesktopDatabase> open(const std::string& service);

  /// Publishes a proxy of a network service in the place of whatever was published before. When that fails, no proxy is
  /// published. Programs that run look again when they are told to: announce().
  Result<void> publish(const DesktopProxy& proxy, const std::string& networkService) const;

  /// What is published, for invalidate(); empty when that is nothing.
  Result<FileDescriptor> openPublished() const;

  /// For what is to live as long as the database.
  const PrivateFolder& folder() const { return folder_; }

 private:
  explicit DesktopDatabase(PrivateFolder folder) : folder_(std::move(folder)) {}
  Result<void> replace(const DesktopProxy& proxy, const std::string& networkService) const;

  PrivateFolder folder_;
};

/// Has everybody who has a database mapped look for the one in its place, even where its file is gone. Takes no room,
/// and no descriptor.
Result<void> invalidate(const FileDescriptor& database);

/// What dconf calls the database of a service: its name in characters that a D-Bus path may have.
std::string desktopDatabaseName(std::string service);

/// Has the programs of all users that run look at a service's database again, by a signal on the system bus. Does not
/// wait for it to be sent.
Result<void> announce(sd_bus* bus, const std::string& service);

}  // namespace platform
