// The service side of local IPC: a listener, its connections, and messages, which are typed dictionaries with replies.
//
// All events are delivered on the main queue. On macOS, libxpc carries the messages; docs/protocol.md describes the
// transport on Linux.
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

/// The process that sent a message, as attested by the kernel.
class Sender;

/// Checks the image that a sender runs, as code_signing::checkFile() checks a file.
Result<void> checkSender(const Sender& sender, const std::string& requirement);

/// A received request.
struct Message {
  Dictionary dictionary;
  std::shared_ptr<const Sender> sender;
  /// Sends the reply; empty if the client expects none. Any thread, at most once. After the connection has ended, the
  /// reply is dropped.
  std::function<void(const Dictionary&)> reply;
};

struct Error {
  enum class Kind {
    connectionInvalid,    ///< the peer left, broke the protocol or was refused; no event follows
    terminationImminent,  ///< the system is about to end this process
    other,
  };
  Kind kind;
  std::string description;
};

using Event = std::variant<Message, Error>;

/// An accepted connection. Main queue only.
class Connection {
 public:
  class Implementation;  ///< differs between systems

  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() = default;

  /// A description for log lines.
  virtual std::string description() const = 0;

  /// The peer's process ID; 0 if unknown.
  virtual std::int32_t peerPID() const = 0;

  /// The peer's effective user ID when it connected.
  virtual std::uint32_t peerUserID() const = 0;

  /// The peer's process. On Linux, it has a handle after resume().
  virtual const Process& peer() const = 0;

  /// Sets the requirement that the peer's running image must satisfy; messages of other peers are not delivered. Call
  /// it before resume(). Returns 0, or a status if the requirement or the peer's process ID is invalid: one of
  /// code_signing.h on Linux, one of XPC's on macOS.
  [[nodiscard]] virtual std::int32_t setPeerCodeSigningRequirement(const std::string& requirement) = 0;

  virtual void setEventHandler(std::function<void(const Event&)> handler) = 0;

  /// Starts the delivery of events.
  virtual void resume() = 0;

  /// Ends the connection. After this call has returned, the handler gets one connectionInvalid event and is then
  /// destroyed.
  virtual void cancel() = 0;
};

using ListenerEvent = std::variant<std::shared_ptr<Connection>, Error>;

struct ServiceSettings {
  std::string name;
  std::int64_t build = 0;  ///< build number in the greeting to clients; macOS has no greeting
  /// Group that a client must have received from its executable (set-group-ID); empty for any. Linux only.
  std::string clientGroup;
};

/// The endpoint of a service. Used on the main queue, or before dispatchMain(). A new connection delivers no events
/// before its resume().
class Listener {
 public:
  class Implementation;  ///< differs between systems

  static Result<std::unique_ptr<Listener>> create(const ServiceSettings& settings);

  Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  virtual void setEventHandler(std::function<void(const ListenerEvent&)> handler) = 0;
  virtual void resume() = 0;
};

}  // namespace platform::ipc
