// The network preferences in a JSON file that is locked, read, changed and replaced as a whole.
#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/network_settings/linux/private_folder.h"

namespace platform {

/// One session's view of the store. One thread at a time. A failed step leaves the file unchanged, except for the last
/// step of a commit (PrivateFolder::replace()).
///
/// The folder holds three files:
/// - "preferences.json": the preferences;
/// - "preferences.lock": locked with flock(2) by the holder of the lock;
/// - "projected.json": a list of the services whose settings have been handed on to NetworkManager.
class PreferencesStore {
 public:
  static Result<PreferencesStore> open(const std::string& folder);

  /// Takes the lock and reads the files. Fails if the preferences have changed since this session read them or, without
  /// `wait`, if another session holds the lock.
  Result<void> lock(bool wait);
  void unlock();

  /// Sets the value at a path (platform/network_settings/preferences.h).
  Result<void> set(const std::string& path, const boost::json::value& value);

  /// Writes the changes to the file; does nothing if there are none. The session must hold the lock. If the file would
  /// become too long, empty entities, which to readers mean the same as missing ones, are removed. Fails with EFBIG if
  /// it is still too long.
  Result<void> commit();

  /// Discards cached values and uncommitted changes.
  void forget();

  /// The value at a path; null if there is none. Valid until the next change.
  Result<const boost::json::value*> find(const std::string& path);

  /// The services whose settings have been handed on to NetworkManager, as of lock(). Changing them requires the lock.
  const std::set<std::string>& projectedServices() const { return projected_; }
  Result<void> setProjectedServices(std::set<std::string> services);

 private:
  PreferencesStore(PrivateFolder folder, FileDescriptor lockFile)
      : folder_(std::move(folder)), lockFile_(std::move(lockFile)) {}

  // These throw a Failure.
  boost::json::object& values();
  void read();
  void readProjected();

  PrivateFolder folder_;
  FileDescriptor lockFile_;
  bool isLocked_ = false;
  bool isChanged_ = false;
  std::optional<boost::json::object> values_;  ///< absent until read
  std::set<std::string> projected_;
  std::optional<FileState> state_;  ///< state of the file that was read; absent if there was none
};

}  // namespace platform
