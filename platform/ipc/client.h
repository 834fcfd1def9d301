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

/// A client's end of a service's endpoint, with one connection at a time and many requests under way. Nothing blocks
/// but wait(). All calls but wake() are made under one lock of the user's. The connection is closed on exec.
class ClientChannel {
 public:
  using Clock = std::chrono::steady_clock;

  struct Reply {
    std::uint64_t id;
    Dictionary dictionary;
  };
  /// Told once of each connection. No event of that connection follows.
  struct End {
    bool wasReached;     ///< false when there is no such service
    std::string reason;  ///< a sentence for people
  };
  using Event = std::variant<Reply, End>;

  /// Throws std::system_error when the system has no descriptor left.
  ClientChannel();
  ~ClientChannel();

  /// Begins a connection; whether it comes up shows by its events. Not while another one is open. False when so many
  /// wait to be connected that there is no room for one more: none is open then.
  [[nodiscard]] bool open(const std::string& serviceName);

  /// Drops the connection, without an event.
  void close();

  /// Takes a request over while a connection is open; it goes out when the service lets this client speak. False when
  /// it is too long to be sent.
  [[nodiscard]] bool send(std::uint64_t id, const Dictionary& request);

  /// Takes back a request that has not begun to go out.
  void withdraw(std::uint64_t id);

  /// What has happened, in order; absent when there is nothing new.
  std::optional<Event> next();

  /// Waits, with the lock let go of, until there may be something new, wake() was called or the time has come. One
  /// thread at a time.
  void wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline);

  /// Ends a wait(), the next one when there is none. Any thread.
  void wake();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform::ipc
