// The system's network preferences: per network service, its proxies and its IPv4 configuration.
//
// Shaped after SCPreferences, which is what carries it on macOS.
#pragma once

#include <boost/json/value.hpp>
#include <memory>
#include <string>

#include "platform/base/result.h"

namespace platform::preferences {

// Keys of the store, the same on every platform (SCSchemaDefinitions.h).
inline constexpr char networkServices[] = "NetworkServices";
inline constexpr char proxiesEntity[] = "Proxies";
inline constexpr char ipv4Entity[] = "IPv4";

/// A session of changes to the network preferences. Used by one thread. The sentence of a failure is the system's text
/// for it (on macOS SCErrorString()). Destroying a session unlocks it, and drops what was not committed.
class Session {
 public:
  class Implementation;

  /// `name` says who asks. On Linux `store` is the folder below /var/lib that holds the preferences; macOS has its own.
  static Result<std::unique_ptr<Session>> create(const std::string& name, const std::string& store);

  explicit Session(std::unique_ptr<Implementation> implementation);
  ~Session();

  /// Locks the preferences against other sessions. With `wait`, blocks until they are free.
  Result<void> lock(bool wait);

  /// Sets the value at a path of "/"-separated keys that begins with "/"; makes what is missing on the way.
  Result<void> setValue(const std::string& path, const boost::json::value& value);

  /// Writes the changes to the store, all or none. The session must hold the lock.
  Result<void> commit();

  /// Has the running system use what was committed.
  Result<void> apply();

  /// Forgets what was read of the store, so that the next use of the session reads it anew.
  void synchronize();

  void unlock();

 private:
  std::unique_ptr<Implementation> implementation_;
};

/// Has the running system follow what is committed from here on, when its network changes for example. Called once, on
/// the main thread before dispatchMain(), by the process that serves. `store` is that of Session::create(); macOS
/// follows by itself.
void keepApplied(const std::string& store);

/// Has the running system no longer use what keepApplied() had it use, for a process that served and cannot do so
/// itself any more. Whether it does not; the system log says why it still may. Needs nothing on macOS.
bool withdraw(const std::string& store);

}  // namespace platform::preferences
