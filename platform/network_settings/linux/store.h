// The network preferences as a JSON file that is locked, read, changed and replaced as a whole.
#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/network_settings/linux/private_folder.h"

namespace platform {

/// One session's view of the store. A failed step leaves the file as it was, but for the end of a commit
/// (PrivateFolder::replace()). Used by one thread.
///
/// Beside the file "preferences.json" lies "preferences.lock", which the holder of the lock has locked by flock(2), and
/// "projected.json", a list of the services whose settings have been handed on to NetworkManager.
class PreferencesStore {
 public:
  static Result<PreferencesStore> open(const std::string& folder);

  /// Takes the lock and reads the files. Fails when the file has changed since this session read it, and, unless it is
  /// to wait, when somebody else has the lock.
  Result<void> lock(bool wait);
  void unlock();

  /// Sets the value at a path as platform/network_settings/preferences.h has it.
  Result<void> set(const std::string& path, const boost::json::value& value);

  /// Replaces the file with what was set; does nothing when nothing was. The session must hold the lock. Where the file
  /// would become too long, empty objects that were not there before are left out: nothing and an empty object mean the
  /// same to who reads it, so that whatever fills the store, everything in it can be emptied.
  Result<void> commit();

  /// Drops what was read and set, and not committed.
  void forget();

  /// The value at a path; null when there is none.
  Result<const boost::json::value*> find(const std::string& path);

  /// What has been handed on, as it was when this session took the lock, which it must hold to change it.
  const std::set<std::string>& projectedServices() const { return projected_; }
  Result<void> setProjectedServices(std::set<std::string> services);

 private:
  PreferencesStore(PrivateFolder folder, FileDescriptor lockFile)
      : folder_(std::move(folder)), lockFile_(std::move(lockFile)) {}

  // These throw a Failure.
  boost::json::object& values();
  void read();
  void readProjected();
  void leaveOutEmpty();

  PrivateFolder folder_;
  FileDescriptor lockFile_;
  bool locked_ = false;
  bool changed_ = false;
  std::vector<std::string> addedEmpty_;        ///< paths at which there was nothing, and an empty object was set
  std::optional<boost::json::object> values_;  ///< absent until they are read
  std::set<std::string> projected_;
  std::optional<struct stat> state_;  ///< of the file that was read; absent: there was none
};

}  // namespace platform
