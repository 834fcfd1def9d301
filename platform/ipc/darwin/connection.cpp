#include "platform/ipc/darwin/connection.h"

#include <dispatch/dispatch.h>

#include "platform/ipc/darwin/sender.h"
#include "platform/ipc/darwin/values.h"

namespace platform::ipc {

struct Connection::Implementation::Delivery {
  // Shared, so that a handler that drops its own connection stays alive until it returns.
  std::shared_ptr<const std::function<void(const Event&)>> handler;

  void deliver(xpc_object_t object);
};

namespace {

Message messageOf(xpc_object_t object) {
  Message message{.dictionary = dictionaryOf(object), .sender = std::make_shared<Sender>(object), .reply = {}};
  // Null if the client expects no reply.
  auto reply = darwin::XPCObject::adopt(xpc_dictionary_create_reply(object));
  auto connection = darwin::XPCConnection::share(xpc_dictionary_get_remote_connection(object));
  if (reply && connection) {
    message.reply = [reply, connection](const Dictionary& dictionary) {
      setValues(reply.get(), dictionary);
      xpc_connection_send_message(connection.get(), reply.get());
    };
  }
  return message;
}

}  // namespace

Error errorOf(xpc_object_t object) {
  auto kind = Error::Kind::other;
  if (object == XPC_ERROR_CONNECTION_INVALID) kind = Error::Kind::connectionInvalid;
  if (object == XPC_ERROR_TERMINATION_IMMINENT) kind = Error::Kind::terminationImminent;
  return {.kind = kind, .description = descriptionOf(object)};
}

void Connection::Implementation::Delivery::deliver(xpc_object_t object) {
  // No event follows this error, so the handler and what it holds, such as the connection, are released.
  auto current = object == XPC_ERROR_CONNECTION_INVALID ? std::exchange(handler, nullptr) : handler;
  if (!current) return;
  auto type = xpc_get_type(object);
  if (type == XPC_TYPE_ERROR) (*current)(errorOf(object));
  if (type == XPC_TYPE_DICTIONARY) (*current)(messageOf(object));
}

Connection::Implementation::Implementation(xpc_connection_t connection)
    : connection_(darwin::XPCConnection::share(connection)),
      peer_(xpc_connection_get_pid(connection), {}),
      delivery_(std::make_shared<Delivery>()) {}

Connection::Implementation::~Implementation() {
  if (isCancelled_) return;
  delivery_->handler = nullptr;
  cancel();
}

std::string Connection::Implementation::description() const {
  return descriptionOf(connection_.get());
}

std::uint32_t Connection::Implementation::peerUserID() const {
  return xpc_connection_get_euid(connection_.get());
}

std::int32_t Connection::Implementation::setPeerCodeSigningRequirement(const std::string& requirement) {
  return xpc_connection_set_peer_code_signing_requirement(connection_.get(), requirement.c_str());
}

void Connection::Implementation::setEventHandler(std::function<void(const Event&)> handler) {
  delivery_->handler = std::make_shared<const std::function<void(const Event&)>>(std::move(handler));
}

void Connection::Implementation::resume() {
  auto delivery = delivery_;
  xpc_connection_set_event_handler(connection_.get(), ^(xpc_object_t object) {
    delivery->deliver(object);
  });
  xpc_connection_set_target_queue(connection_.get(), dispatch_get_main_queue());
  xpc_connection_resume(connection_.get());
}

void Connection::Implementation::cancel() {
  isCancelled_ = true;
  xpc_connection_cancel(connection_.get());
}

void Connection::Implementation::terminate() {
  if (auto handler = std::exchange(delivery_->handler, nullptr)) {
    (*handler)(Error{.kind = Error::Kind::terminationImminent, .description = "Termination imminent"});
  }
}

}  // namespace platform::ipc
