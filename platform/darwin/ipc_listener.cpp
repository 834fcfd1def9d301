#include <dispatch/dispatch.h>

#include "platform/darwin/ipc_connection.h"

namespace platform::ipc {

class Listener::Implementation {
 public:
  explicit Implementation(darwin::XPCConnection service) : service_(std::move(service)) {}
  ~Implementation() { xpc_connection_cancel(service_.get()); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void setEventHandler(std::function<void(const ListenerEvent&)> handler) {
    xpc_connection_set_event_handler(service_.get(), ^(xpc_object_t object) {
      if (xpc_get_type(object) != XPC_TYPE_CONNECTION) return handler(errorOf(object));
      auto peer = std::make_shared<Connection::Implementation>(static_cast<xpc_connection_t>(object));
      handler(std::make_shared<Connection>(std::move(peer)));
    });
  }

  void resume() { xpc_connection_resume(service_.get()); }

 private:
  darwin::XPCConnection service_;
};

std::unique_ptr<Listener> Listener::create(const std::string& serviceName, std::int64_t) {
  auto service = darwin::XPCConnection::adopt(xpc_connection_create_mach_service(
      serviceName.c_str(), dispatch_get_main_queue(), XPC_CONNECTION_MACH_SERVICE_LISTENER));
  if (!service) return nullptr;
  return std::make_unique<Listener>(std::make_unique<Implementation>(std::move(service)));
}

Listener::Listener(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Listener::~Listener() = default;
void Listener::setEventHandler(std::function<void(const ListenerEvent&)> handler) {
  implementation_->setEventHandler(std::move(handler));
}
void Listener::resume() {
  implementation_->resume();
}

}  // namespace platform::ipc
