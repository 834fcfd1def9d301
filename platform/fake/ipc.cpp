#include "platform/fake/ipc.h"

namespace platform::ipc {

class Sender {};

class Connection::Implementation {
 public:
  explicit Implementation(std::shared_ptr<fake::ConnectionState> connection) : state(std::move(connection)) {}

  std::shared_ptr<fake::ConnectionState> state;
  Process peer{state->peerPID, {}};
};

Connection::Connection(std::shared_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Connection::~Connection() = default;
std::string Connection::description() const {
  return "<fake connection>";
}
std::int32_t Connection::peerPID() const {
  return implementation_->state->peerPID;
}
std::uint32_t Connection::peerUserID() const {
  return implementation_->state->peerUserID;
}
const Process& Connection::peer() const {
  return implementation_->peer;
}
std::int32_t Connection::setPeerCodeSigningRequirement(const std::string& requirement) {
  implementation_->state->requirement = requirement;
  return implementation_->state->requirementStatus;
}
void Connection::setEventHandler(std::function<void(const Event&)> handler) {
  implementation_->state->handler = std::move(handler);
}
void Connection::resume() {
  implementation_->state->resumed = true;
}
void Connection::cancel() {
  implementation_->state->cancelled = true;
}

}  // namespace platform::ipc

namespace platform::fake {

std::shared_ptr<ipc::Connection> makeConnection(std::shared_ptr<ConnectionState> state) {
  return std::make_shared<ipc::Connection>(std::make_shared<ipc::Connection::Implementation>(std::move(state)));
}

ipc::Message makeMessage(ipc::Dictionary dictionary, std::function<void(const ipc::Dictionary&)> reply) {
  return {.dictionary = std::move(dictionary), .sender = std::make_shared<ipc::Sender>(), .reply = std::move(reply)};
}

}  // namespace platform::fake
