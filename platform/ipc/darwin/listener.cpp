#include <dispatch/dispatch.h>
#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <list>

#include "platform/base/result.h"
#include "platform/dispatch/darwin/dispatch_reference.h"
#include "platform/ipc/darwin/connection.h"

namespace platform::ipc {

class Listener::Implementation {
 public:
  explicit Implementation(darwin::XPCConnection service)
      : service_(std::move(service)),
        termination_(darwin::DispatchSource::adopt(
            dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, SIGTERM, 0, dispatch_get_main_queue()))) {
    if (!termination_) throw lastFailure("cannot watch for SIGTERM");
    setEventHandler([](const ListenerEvent&) {});
    dispatch_source_set_event_handler(termination_.get(), ^{
      terminate();
    });
  }
  // Neither may be released before it was activated.
  ~Implementation() {
    xpc_connection_cancel(service_.get());
    xpc_connection_activate(service_.get());
    dispatch_source_cancel(termination_.get());
    dispatch_activate(termination_.get());
  }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void setEventHandler(std::function<void(const ListenerEvent&)> handler) {
    xpc_connection_set_event_handler(service_.get(), ^(xpc_object_t object) {
      if (xpc_get_type(object) != XPC_TYPE_CONNECTION) return handler(errorOf(object));
      auto peer = std::make_shared<Connection::Implementation>(static_cast<xpc_connection_t>(object));
      connections_.remove_if([](const auto& connection) { return connection.expired(); });
      connections_.push_back(peer);
      handler(std::make_shared<Connection>(std::move(peer)));
    });
  }

  void resume() {
    // The source hears of it all the same (signal(3), dispatch_source_create(3)).
    signal(SIGTERM, SIG_IGN);
    dispatch_activate(termination_.get());
    xpc_connection_resume(service_.get());
  }

 private:
  // XPC tells of a termination only where it counts transactions, and an idle client is none.
  void terminate() {
    // A handler may close any of the connections.
    auto connections = connections_;
    for (const auto& weak : connections) {
      if (auto connection = weak.lock())
        connection->deliver(Error{.kind = Error::Kind::terminationImminent, .description = "Termination imminent"});
    }
    // What is on its way on the main queue, the end of a connection for one, is still delivered.
    dispatch_async(dispatch_get_main_queue(), ^{
      std::exit(EXIT_SUCCESS);
    });
  }

  darwin::XPCConnection service_;
  darwin::DispatchSource termination_;
  std::list<std::weak_ptr<Connection::Implementation>> connections_;
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
