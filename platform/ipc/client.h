// The client side of local IPC.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "platform/ipc/dictionary.h"

namespace platform::ipc {

/// A client's connection to a service: one at a time, with any number of requests in progress. Only wait() blocks. The
/// caller must hold the same lock in every call except wake(). The connection is closed on exec.
class ClientChannel {
 public:
  using Clock = std::chrono::steady_clock;

  struct Reply {
    std::uint64_t id;
    Dictionary dictionary;
  };
  /// Reported when a connection ends, except by close(). No other event of that connection follows.
  struct End {
    bool wasReached;     ///< false if no connection to the service could be made
    std::string reason;  ///< a sentence for people
  };
  using Event = std::variant<Reply, End>;

  /// Throws std::system_error if the system has no descriptors left.
  ClientChannel();
  ~ClientChannel();

  /// Begins a connection. Its events show whether it succeeds. Must not be called while a connection is open. Returns
  /// false, and opens nothing, if the service's queue of waiting connections is full.
  [[nodiscard]] bool open(const std::string& serviceName);

  /// Closes the connection without an event.
  void close();

  /// Queues a request on the open connection. It is sent once the service has accepted this client. False if the
  /// request is too long to be sent.
  [[nodiscard]] bool send(std::uint64_t id, const Dictionary& request);

  /// Removes a request whose sending has not begun.
  void withdraw(std::uint64_t id);

  /// The next event; absent if there is none before the next wait().
  std::optional<Event> next();

  /// Releases the lock and waits until there may be an event, wake() is called, or the deadline passes; then takes the
  /// lock again. May return early. Only one thread may wait at a time.
  void wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline);

  /// Ends the current wait() or, if there is none, the next one. Any thread.
  void wake();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform::ipc
