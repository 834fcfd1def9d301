#include "platform/fake/ipc.h"

namespace platform::ipc {

class Sender {};

class Connection::Implementation final : public Connection {
 public:
  explicit Implementation(std::shared_ptr<fake::ConnectionState> state)
      : state_(std::move(state)), peer_(state_->peerPID, {}) {}

  std::string description() const override { return "<fake connection>"; }
  std::int32_t peerPID() const override { return state_->peerPID; }
  std::uint32_t peerUserID() const override { return state_->peerUserID; }
  const Process& peer() const override { return peer_; }
  std::int32_t setPeerCodeSigningRequirement(const std::string& requirement) override {
    state_->requirement = requirement;
    return state_->requirementStatus;
  }
  void setEventHandler(std::function<void(const Event&)> handler) override { state_->handler = std::move(handler); }
  void resume() override { state_->resumed = true; }
  void cancel() override { state_->cancelled = true; }

 private:
  std::shared_ptr<fake::ConnectionState> state_;
  Process peer_;
};

}  // namespace platform::ipc

namespace platform::fake {

std::shared_ptr<ipc::Connection> makeConnection(std::shared_ptr<ConnectionState> state) {
  return std::make_shared<ipc::Connection::Implementation>(std::move(state));
}

ipc::Message makeMessage(ipc::Dictionary dictionary, std::function<void(const ipc::Dictionary&)> reply) {
  return {.dictionary = std::move(dictionary), .sender = std::make_shared<ipc::Sender>(), .reply = std::move(reply)};
}

}  // namespace platform::fake
