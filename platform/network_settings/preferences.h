// The system's network preferences: per network service, its proxies and its IPv4 configuration.
//
// Shaped after SCPreferences, which is what carries it on macOS.
#pragma once

#include <boost/json/value.hpp>
#include <memory>
#include <string>

namespace platform::preferences {

// Keys of the store, the same on every platform (SCSchemaDefinitions.h).
inline constexpr char networkServices[] = "NetworkServices";
inline constexpr char proxiesEntity[] = "Proxies";
inline constexpr char ipv4Entity[] = "IPv4";

/// A session of changes to the network preferences. Used by one thread. Where a step returns false, lastErrorText()
/// says why. Destroying a session unlocks it, and drops what was not committed.
class Session {
 public:
  class Implementation;

  /// Null when no session can be had. `name` says who asks.
  static std::unique_ptr<Session> create(const std::string& name);

  explicit Session(std::unique_ptr<Implementation> implementation);
  ~Session();

  /// Locks the preferences against other sessions. With `wait`, blocks until they are free.
  [[nodiscard]] bool lock(bool wait);

  /// Sets the value at a path of "/"-separated keys that begins with "/"; makes what is missing on the way.
  [[nodiscard]] bool setValue(const std::string& path, const boost::json::value& value);

  /// Writes the changes to the store, all or none. The session must hold the lock.
  [[nodiscard]] bool commit();

  /// Has the running system use what was committed.
  [[nodiscard]] bool apply();

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

/// Text of the last error of a session on this thread; "Success!" when there was none.
std::string lastErrorText();

}  // namespace platform::preferences
