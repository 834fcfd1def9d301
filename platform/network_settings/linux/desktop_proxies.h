// Which of the stored proxies programs of a desktop are told, and when.
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

/// The services whose proxies a client has set since the machine started or the helper last ended unexpectedly. What
/// the store holds for others is of another time.
struct ProxyRecord {
  struct Service {
    std::string id;
    bool isConnection = true;  ///< of NetworkManager's, as far as is known
  };
  std::vector<Service> services;  ///< the first recorded first
  std::optional<std::string> primary;

  void add(const std::string& service);
  void remove(const std::string& service);

  /// Whose proxies hold: the primary connection's; where there is none, or nobody set it, those of the first service
  /// that is no connection. Absent when there is none either.
  std::optional<std::string> source() const;
};

/// Used on the main thread. Nothing in it throws: what goes wrong is in the system log, and no proxy is published then.
class DesktopProxies {
 public:
  /// `service`: the name of the helper's service, after which the store and the folder in /run are called.
  explicit DesktopProxies(const std::string& service);

  /// Goes on where the helper before stopped, if it called keepForNext(), and follows the primary connection from here
  /// on. At the end of the main loop publishes no proxy any more.
  void start();

  /// Leaves what is published to the next helper. One that is killed does not: nothing it has recorded counts then.
  void keepForNext();

  /// Publishes what a session has committed: the store with the proxies of services that have just been set, and those
  /// that were to be switched off, which counts even where the store could not be changed.
  void publish(PreferencesStore& store, const std::set<std::string>& set, const std::set<std::string>& off);

  /// As publish(), once it is known which services are NetworkManager's connections.
  void publishKnowing(PreferencesStore& store, const std::set<std::string>& connections);

  /// Publishes no proxy, of the services set so far not later either: there is no store to be read, and it is unknown
  /// what was to be switched off in it.
  void publishNone();

 private:
  void setPrimary(const std::optional<std::string>& primary);
  void publish(PreferencesStore* store);
  void replacePublished(PreferencesStore* store);  ///< throws a Failure

  std::string service_;
  ProxyRecord record_;
  FileDescriptor published_;  ///< held, so that it can be invalidated whatever becomes of its file
  bool isPrimaryKnown_ = false;
  EventSource end_;
  std::unique_ptr<PrimaryConnection> primary_;
};

/// Publishes no proxy and forgets the record, for good. Tells running programs within two seconds, or not at all.
/// Whether the first two went well; the system log says why not.
bool withdrawDesktopProxies(const std::string& service);

}  // namespace platform
