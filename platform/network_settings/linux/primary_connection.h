// Follows which connection NetworkManager uses for the network at large.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/base/linux/system_bus.h"
#include "platform/dispatch/linux/event_loop.h"

namespace platform {

/// Over a connection to the system bus of its own, which never waits and is made anew when it is lost. Main thread.
class PrimaryConnection {
 public:
  /// Called with its UUID, again and again, also when it is still the same; without one when there is none, or neither
  /// NetworkManager nor a bus. Not called as long as NetworkManager does not answer.
  using Handler = std::function<void(const std::optional<std::string>&)>;

  explicit PrimaryConnection(Handler handler);

  /// The connection to the bus, on which signals can be sent; null when there is none now.
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
  BusSlot question_;  ///< under way
  ReplyHandler replyHandler_ = nullptr;
  bool isToAskAgain_ = false;  ///< once that is answered
  EventSource retry_;
};

}  // namespace platform
