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

#include "platform/base/result.h"
#include "platform/code_signing/code_signing.h"
#include "platform/ipc/dictionary.h"
#include "platform/process/process.h"

namespace platform::ipc {

/// The process that sent a message, attested by the kernel.
class Sender;

/// Checks the image that the sender of a message runs, as code_signing::checkFile() does a file.
Result<void> checkSender(const Sender& sender, const std::string& requirement);

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
  class Implementation;  ///< each system's own

  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() = default;

  /// For log lines.
  virtual std::string description() const = 0;

  /// The peer's process ID, 0 when it cannot be told.
  virtual std::int32_t peerPID() const = 0;

  /// Effective user ID of the peer at the moment when it connected.
  virtual std::uint32_t peerUserID() const = 0;

  /// The peer's process; from resume() on it is held.
  virtual const Process& peer() const = 0;

  /// From resume() on, only a peer whose running image satisfies the requirement is heard. Returns 0, or the status
  /// with which the requirement text or the peer's process ID was refused: of code_signing.h on Linux, of XPC's own on
  /// macOS.
  [[nodiscard]] virtual std::int32_t setPeerCodeSigningRequirement(const std::string& requirement) = 0;

  virtual void setEventHandler(std::function<void(const Event&)> handler) = 0;

  /// Starts the delivery of events.
  virtual void resume() = 0;

  /// Ends the connection; the handler then gets one connectionInvalid event, not before this call has returned, and is
  /// let go afterwards.
  virtual void cancel() = 0;
};

using ListenerEvent = std::variant<std::shared_ptr<Connection>, Error>;

struct ServiceSettings {
  std::string name;
  std::int64_t build = 0;   ///< what the greeting tells the client; macOS has no greeting
  std::string clientGroup;  ///< group that a client must have connected with; empty: any. Linux only
};

/// The endpoint of a service. Used on the main queue, or before that is served. A new connection delivers nothing
/// before its resume().
class Listener {
 public:
  class Implementation;  ///< each system's own

  static Result<std::unique_ptr<Listener>> create(const ServiceSettings& settings);

  Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  virtual void setEventHandler(std::function<void(const ListenerEvent&)> handler) = 0;
  virtual void resume() = 0;
};

}  // namespace platform::ipc
