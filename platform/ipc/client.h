// The client side of local IPC.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/base/result.h"
#include "platform/ipc/dictionary.h"

namespace platform::ipc {

/// A connection to a service. Blocking; used by one thread at a time. The connection is closed on exec.
class ClientConnection {
 public:
  class Implementation;

  /// Connects and waits until the service admits the caller to speak. On macOS a connection is had at once, and ends
  /// with the first request when there is no service or it refuses the caller.
  static Result<std::unique_ptr<ClientConnection>> connect(const std::string& serviceName);

  explicit ClientConnection(std::unique_ptr<Implementation> implementation);
  ~ClientConnection();

  /// Sends a request and waits for its reply; absent when the connection ended first. Throws std::invalid_argument,
  /// with the connection intact, when the request is too long to be sent.
  std::optional<Dictionary> sendWithReply(const Dictionary& request);

  /// Sends a message that accepts no reply; false when the connection has ended. Throws like sendWithReply().
  bool send(const Dictionary& message);

 private:
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform::ipc
