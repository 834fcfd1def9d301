// Follows which connection NetworkManager uses for the default route.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/base/linux/system_bus.h"
#include "platform/dispatch/linux/event_loop.h"

namespace platform {

/// Uses a private connection to the system bus, which never blocks and is reopened when lost. Main thread.
class PrimaryConnection {
 public:
  /// Called with the UUID of the primary connection, possibly several times with the same one; absent if there is no
  /// primary connection, NetworkManager or bus. Not called while NetworkManager does not answer.
  using Handler = std::function<void(const std::optional<std::string>&)>;

  explicit PrimaryConnection(Handler handler);

  /// The bus connection, for sending signals; null if there is none now.
  sd_bus* bus();

 private:
  using ReplyHandler = void (PrimaryConnection::*)(sd_bus_message*);

  void connect();
  void lose();
  void ask();
  void get(const char* path, const char* interface, const char* name, ReplyHandler handler);
  void takeConnection(sd_bus_message* reply);
  void takeUUID(sd_bus_message* reply);

  Handler handler_;
  SystemBus bus_;
  bool isLost_ = true;
  BusSlot question_;  ///< the call in progress
  ReplyHandler replyHandler_ = nullptr;
  bool mustAskAgain_ = false;  ///< when the pending call has completed
  EventSource retry_;
};

}  // namespace platform
