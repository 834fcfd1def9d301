// The folder through which desktop programs read their proxies: a dconf database, and the same as readable JSON.
#pragma once

#include <string>
#include <vector>

#include "platform/base/linux/system_bus.h"
#include "platform/network_settings/linux/desktop_proxy.h"
#include "platform/network_settings/linux/private_folder.h"

namespace platform {

/// The files in the folder, which everybody may read:
/// - "dconf" is the database.
/// - "proxies.json" is the readable form. It also names the network services whose proxies clients have set.
/// - "dconf.old" is a second name for a database while it is being replaced. Programs that have it mapped consider it
///   current until its first bytes are cleared (invalidate()).
class DesktopDatabase {
 public:
  /// Opens the service's folder in /run; creates it if missing.
  static Result<DesktopDatabase> open(const std::string& service);

  /// Publishes the proxy of the network service `source` in place of the previous one, and the IDs of all services
  /// whose proxies clients have set. On failure, no proxy is published any more. Running programs notice when they are
  /// told (announce()).
  Result<void> publish(const DesktopProxy& proxy, const std::string& source,
                       const std::vector<std::string>& services) const;

  /// The published database, for invalidate(); empty if nothing is published.
  Result<FileDescriptor> openPublished() const;

  /// The folder, for files with the same lifetime as the database.
  const PrivateFolder& folder() const { return folder_; }

 private:
  explicit DesktopDatabase(PrivateFolder folder) : folder_(std::move(folder)) {}
  Result<void> replace(const DesktopProxy& proxy, const std::string& source,
                       const std::vector<std::string>& services) const;

  PrivateFolder folder_;
};

/// Makes every program that has a database mapped look for its replacement, even if the file has been deleted. Needs no
/// disk space and no further descriptor. Does nothing if `database` is empty.
Result<void> invalidate(const FileDescriptor& database);

/// The dconf name of a service's database: the service's name with "_" for characters that a D-Bus path may not
/// contain.
std::string desktopDatabaseName(std::string service);

/// Makes running programs of all users read a service's database again, by a signal on the system bus. Does not wait
/// until it is sent.
Result<void> announce(sd_bus* bus, const std::string& service);

}  // namespace platform
