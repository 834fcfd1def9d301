// A connection that XPC passed to the listener.
#pragma once

#include "platform/ipc/darwin/xpc_reference.h"
#include "platform/ipc/service.h"

namespace platform::ipc {

/// The error that an XPC object stands for; `other` if it is not an error.
Error errorOf(xpc_object_t object);

class Connection::Implementation final : public Connection {
 public:
  explicit Implementation(xpc_connection_t connection);
  ~Implementation() override;

  std::string description() const override;
  std::int32_t peerPID() const override { return peer_.pid(); }
  const Process& peer() const override { return peer_; }
  std::uint32_t peerUserID() const override;
  std::int32_t setPeerCodeSigningRequirement(const std::string& requirement) override;
  void setEventHandler(std::function<void(const Event&)> handler) override;
  void resume() override;
  void cancel() override;

  /// Tells the handler that this process is about to end. No event follows: messages of the peer that are still
  /// undelivered are dropped.
  void terminate();

 private:
  /// Shared with XPC as long as events may come.
  struct Delivery;

  darwin::XPCConnection connection_;
  Process peer_;
  std::shared_ptr<Delivery> delivery_;
  bool isCancelled_ = false;
};

}  // namespace platform::ipc
