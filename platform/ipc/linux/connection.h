// A connection of the Linux endpoint.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/dispatch/linux/event_loop.h"
#include "platform/ipc/linux/frames.h"
#include "platform/ipc/linux/sender.h"
#include "platform/ipc/service.h"

namespace platform::ipc {

/// Settings that a listener shares with its connections.
struct Endpoint {
  Dictionary greeting;
  /// Group that a peer must have received from its executable (Sender::wasGivenGroup()); absent for any.
  std::optional<gid_t> requiredGroup;
};

class Connection::Implementation final : public Connection, public std::enable_shared_from_this<Implementation> {
 public:
  /// Takes ownership of an accepted, non-blocking socket. `closed` is called once, when the socket is closed.
  Implementation(FileDescriptor socket, std::shared_ptr<const Endpoint> endpoint, std::function<void()> closed);
  ~Implementation() override;

  std::string description() const override;
  std::int32_t peerPID() const override { return sender_->pid(); }
  std::uint32_t peerUserID() const override { return sender_->uid(); }
  const Process& peer() const override { return sender_->process(); }
  std::int32_t setPeerCodeSigningRequirement(const std::string& requirement) override;
  void setEventHandler(std::function<void(const Event&)> handler) override;
  void resume() override;
  void cancel() override;

  /// Tells the handler that this process is about to end. No event follows: messages of the peer that are still
  /// undelivered are dropped.
  void terminate();

 private:
  void deliver(const Event& event);
  Result<void> admitPeer();
  enum class Received { bytes, nothing, end };
  Received receive();
  void handleFrames();
  void drain();
  void send(const Frame& frame);
  void flush();
  void close();
  Message messageOf(Frame frame);

  FileDescriptor socket_;
  std::shared_ptr<const Endpoint> endpoint_;
  std::function<void()> closed_;
  std::shared_ptr<Sender> sender_;
  std::string requirement_;
  // Shared, so that a handler that cancels its own connection stays alive until it returns.
  std::shared_ptr<const std::function<void(const Event&)>> handler_;
  EventSource readiness_;
  EventSource peerEnd_;
  FrameReader reader_;
  Data outgoing_;
  std::size_t sent_ = 0;  // bytes of outgoing_ already sent
};

}  // namespace platform::ipc
