// The service side of local IPC: a listener, its connections, and messages that are typed dictionaries with replies.
//
// All events are delivered on the main queue. On macOS this is libxpc; the Linux transport is documented in
// docs/protocol.md.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "platform/code_signing/code_signing.h"
#include "platform/ipc/dictionary.h"
#include "platform/process/process.h"

namespace platform::ipc {

/// The process that sent a message, attested by the kernel.
class Sender;

/// Checks the image that the sender of a message runs.
[[nodiscard]] code_signing::Status checkSender(const Sender& sender, const std::string& requirement);

/// A request as received.
struct Message {
  Dictionary dictionary;
  std::shared_ptr<const Sender> sender;
  /// Sends the reply. Empty when the client expects none. May be called from any thread, once; what is sent after the
  /// connection ended is dropped.
  std::function<void(const Dictionary&)> reply;
};

struct Error {
  enum class Kind {
    connectionInvalid,    ///< the peer left, broke the protocol or was refused; nothing follows
    terminationImminent,  ///< the system is about to end this process
    other,
  };
  Kind kind;
  std::string description;
};

using Event = std::variant<Message, Error>;

/// One accepted connection. Used on the main queue only.
class Connection {
 public:
  class Implementation;
  explicit Connection(std::shared_ptr<Implementation> implementation);
  ~Connection();

  /// For log lines.
  std::string description() const;

  /// The peer's process ID, 0 when it cannot be told.
  std::int32_t peerPID() const;

  /// Effective user ID of the peer at the moment when it connected.
  std::uint32_t peerUserID() const;

  /// The peer's process; from resume() on it is held.
  const Process& peer() const;

  /// From resume() on, only a peer whose running image satisfies the requirement is heard. Returns 0, or the status
  /// with which the requirement text or the peer's process ID was refused: of code_signing.h on Linux, of XPC's own on
  /// macOS.
  [[nodiscard]] std::int32_t setPeerCodeSigningRequirement(const std::string& requirement);

  void setEventHandler(std::function<void(const Event&)> handler);

  /// Starts the delivery of events.
  void resume();

  /// Ends the connection; the handler then gets one connectionInvalid event, not before this call has returned, and is
  /// let go afterwards.
  void cancel();

 private:
  std::shared_ptr<Implementation> implementation_;
};

using ListenerEvent = std::variant<std::shared_ptr<Connection>, Error>;

/// The endpoint of a service. Used on the main queue, or before that is served. A new connection delivers nothing
/// before its resume().
class Listener {
 public:
  class Implementation;

  /// The endpoint named serviceName, or null when it cannot be had. On Linux the greeting tells the client `build`.
  static std::unique_ptr<Listener> create(const std::string& serviceName, std::int64_t build);

  explicit Listener(std::unique_ptr<Implementation> implementation);
  ~Listener();

  void setEventHandler(std::function<void(const ListenerEvent&)> handler);
  void resume();

 private:
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform::ipc
