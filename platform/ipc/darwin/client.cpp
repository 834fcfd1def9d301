#include "platform/ipc/client.h"

#include <atomic>

#include "platform/dispatch/darwin/dispatch_reference.h"
#include "platform/ipc/darwin/values.h"

namespace platform::ipc {

class ClientConnection::Implementation {
 public:
  explicit Implementation(const std::string& serviceName)
      : connection_(darwin::XPCConnection::adopt(
            xpc_connection_create_mach_service(serviceName.c_str(), nullptr, XPC_CONNECTION_MACH_SERVICE_PRIVILEGED))) {
    auto hasEnded = hasEnded_;
    xpc_connection_set_event_handler(connection_.get(), ^(xpc_object_t object) {
      if (xpc_get_type(object) == XPC_TYPE_ERROR) *hasEnded = true;
    });
    xpc_connection_resume(connection_.get());
  }
  ~Implementation() { xpc_connection_cancel(connection_.get()); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  std::optional<Dictionary> sendWithReply(const Dictionary& request) {
    if (*hasEnded_) return std::nullopt;
    auto reply = darwin::XPCObject::adopt(
        xpc_connection_send_message_with_reply_sync(connection_.get(), makeMessage(request).get()));
    if (xpc_get_type(reply.get()) == XPC_TYPE_DICTIONARY) return dictionaryOf(reply.get());
    *hasEnded_ = true;
    return std::nullopt;
  }

  bool send(const Dictionary& dictionary) {
    if (*hasEnded_) return false;
    xpc_connection_send_message(connection_.get(), makeMessage(dictionary).get());
    // What is still to be sent when the connection is cancelled would be thrown away.
    auto sent = darwin::DispatchSemaphore::adopt(dispatch_semaphore_create(0));
    xpc_connection_send_barrier(connection_.get(), ^{
      dispatch_semaphore_signal(sent.get());
    });
    dispatch_semaphore_wait(sent.get(), DISPATCH_TIME_FOREVER);
    return !*hasEnded_;
  }

 private:
  static darwin::XPCObject makeMessage(const Dictionary& dictionary) {
    auto message = darwin::XPCObject::adopt(xpc_dictionary_create(nullptr, nullptr, 0));
    setValues(message.get(), dictionary);
    return message;
  }

  darwin::XPCConnection connection_;
  // XPC would start the service anew for a message that follows its end; but then it would not be the one that this
  // connection's requests were made to.
  std::shared_ptr<std::atomic<bool>> hasEnded_ = std::make_shared<std::atomic<bool>>(false);
};

// XPC looks for the service when the first message is sent, so that what is wrong with it shows there.
Result<std::unique_ptr<ClientConnection>> ClientConnection::connect(const std::string& serviceName) {
  return std::make_unique<ClientConnection>(std::make_unique<Implementation>(serviceName));
}

ClientConnection::ClientConnection(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}
ClientConnection::~ClientConnection() = default;
std::optional<Dictionary> ClientConnection::sendWithReply(const Dictionary& request) {
  return implementation_->sendWithReply(request);
}
bool ClientConnection::send(const Dictionary& message) {
  return implementation_->send(message);
}

}  // namespace platform::ipc
