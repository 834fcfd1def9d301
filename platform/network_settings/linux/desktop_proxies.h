// Decides which of the stored proxies desktop programs see, and when.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/network_settings/linux/desktop_database.h"
#include "platform/network_settings/linux/primary_connection.h"
#include "platform/network_settings/linux/store.h"

namespace platform {

/// File of the record, in the folder of the database.
inline constexpr char proxyRecordName[] = "services.json";

/// The services whose proxies clients have set since the machine started or the helper last ended other than by "stop".
/// The store may hold older settings of other services; those do not count.
struct ProxyRecord {
  struct Service {
    std::string id;
    bool isConnection = true;  ///< whether it is a connection of NetworkManager, as far as known
  };
  std::vector<Service> services;  ///< in the order of recording
  std::optional<std::string> primary;

  /// Keeps the last 4,096 services. Leaves out IDs of more than 256 bytes.
  void add(std::set<std::string> added);
  void remove(const std::set<std::string>& removed);

  /// The service whose proxies apply: the primary connection if it is recorded, otherwise the first recorded service
  /// that is not a connection. Absent if there is neither.
  std::optional<std::string> source() const;
};

/// Main thread only. Nothing here throws: failures go to the system log, and then no proxy is published.
class DesktopProxies {
 public:
  /// `service` is the name of the helper's service, which also names the store and the folder in /run.
  explicit DesktopProxies(const std::string& service);

  /// Continues where the previous helper stopped, if it called keepForNext(), and follows the primary connection from
  /// now on. When the main loop ends, withdraws the published proxy.
  void start();

  /// Leaves the published proxy to the next helper. Without this call, the next helper publishes no proxy.
  void keepForNext();

  /// Publishes the changes of a session. `set` has the services whose proxies were just committed. `off` has the
  /// services whose proxies are to be off, even if the store could not be changed.
  void publish(PreferencesStore& store, const std::set<std::string>& set, const std::set<std::string>& off);

  /// Publishes again, now that it is known which services are connections of NetworkManager.
  void publishForConnections(PreferencesStore& store, const std::set<std::string>& connections);

  /// Publishes that there is no proxy, and forgets the services set so far. Also for a store that cannot be read: it is
  /// then unknown which proxies were to be switched off.
  void publishNone();

 private:
  void setPrimary(const std::optional<std::string>& primary);
  void publish(PreferencesStore* store);
  void replacePublished(PreferencesStore* store);  ///< throws a Failure

  std::string service_;
  ProxyRecord record_;
  FileDescriptor published_;  ///< kept open, so that it can be invalidated whatever happens to its file
  bool isPrimaryKnown_ = false;
  EventSource end_;
  std::unique_ptr<PrimaryConnection> primary_;
};

/// Publishes that there is no proxy, and deletes the record. Notifies running programs, which takes at most two
/// seconds. Returns whether publishing and deleting succeeded; the system log says what failed.
bool withdrawDesktopProxies(const std::string& service);

}  // namespace platform
