// The system's network preferences: for each network service, its proxies and IPv4 configuration. Modelled on
// SCPreferences, which implements them on macOS.
#pragma once

#include <boost/json/value.hpp>
#include <memory>
#include <string>

#include "platform/base/result.h"

namespace platform::preferences {

// Keys of the store; the same on every platform (SCSchemaDefinitions.h).
inline constexpr char networkServices[] = "NetworkServices";
inline constexpr char proxiesEntity[] = "Proxies";
inline constexpr char ipv4Entity[] = "IPv4";

/// A session that changes the network preferences. One thread at a time. On macOS, the sentence of a failure is
/// SCErrorString(). Destroying a session unlocks it and discards uncommitted changes.
class Session {
 public:
  class Implementation;

  /// `name` identifies the caller. `store` is the folder below /var/lib that holds the preferences on Linux; macOS
  /// ignores it.
  static Result<std::unique_ptr<Session>> create(const std::string& name, const std::string& store);

  explicit Session(std::unique_ptr<Implementation> implementation);
  ~Session();

  /// Locks the preferences against other sessions. With `wait`, blocks until the lock is free.
  Result<void> lock(bool wait);

  /// Sets the value at a path, which consists of keys that each follow a "/". Missing parents are created.
  Result<void> setValue(const std::string& path, const boost::json::value& value);

  /// Writes all changes to the store or, on failure, none. The session must hold the lock. There is one exception on
  /// Linux: if the store has no room for all changes, the empty proxies dictionaries are still written. The call then
  /// fails if there are other changes.
  Result<void> commit();

  /// Applies the committed changes to the running system.
  Result<void> apply();

  /// Discards cached values and uncommitted changes, so that the next use of the session reads the store again.
  void synchronize();

  void unlock();

 private:
  std::unique_ptr<Implementation> implementation_;
};

/// Keeps the running system up to date with the committed preferences from now on, for example when its network
/// changes. Called once by the serving process, on the main thread before dispatchMain(). `store` is the same as for
/// Session::create(). Does nothing on macOS, which itself keeps the system up to date.
void keepApplied(const std::string& store);

/// Undoes keepApplied() for a serving process that ended without doing so itself. Returns whether that succeeded; the
/// system log says what failed. Does nothing on macOS.
bool withdraw(const std::string& store);

}  // namespace platform::preferences
