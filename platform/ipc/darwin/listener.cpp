#include <dispatch/dispatch.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <list>

#include "platform/base/result.h"
#include "platform/dispatch/darwin/dispatch_reference.h"
#include "platform/ipc/darwin/connection.h"

namespace platform::ipc {

class Listener::Implementation final : public Listener {
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
  // Both objects must be activated before their release.
  ~Implementation() override {
    xpc_connection_cancel(service_.get());
    xpc_connection_activate(service_.get());
    dispatch_source_cancel(termination_.get());
    dispatch_activate(termination_.get());
  }

  void setEventHandler(std::function<void(const ListenerEvent&)> handler) override {
    xpc_connection_set_event_handler(service_.get(), ^(xpc_object_t object) {
      if (isTerminating_) return;
      if (xpc_get_type(object) != XPC_TYPE_CONNECTION) return handler(errorOf(object));
      auto peer = std::make_shared<Connection::Implementation>(static_cast<xpc_connection_t>(object));
      connections_.remove_if([](const auto& connection) { return connection.expired(); });
      connections_.push_back(peer);
      handler(std::move(peer));
    });
  }

  void resume() override {
    // Ignored, so that it does not end the process. The dispatch source sees it all the same
    // (dispatch_source_create(3)).
    signal(SIGTERM, SIG_IGN);
    dispatch_activate(termination_.get());
    xpc_connection_resume(service_.get());
  }

 private:
  // Called on SIGTERM. XPC itself reports termination only to services with open transactions, and an idle client holds
  // no transaction.
  void terminate() {
    // A copy, because a handler may close any of the connections.
    auto connections = connections_;
    for (const auto& weak : connections) {
      if (auto connection = weak.lock()) connection->terminate();
    }
    isTerminating_ = true;
    // Events that are already on the main queue, such as the end of a connection, are still delivered.
    dispatch_async(dispatch_get_main_queue(), ^{
      std::exit(EXIT_SUCCESS);
    });
  }

  darwin::XPCConnection service_;
  darwin::DispatchSource termination_;
  std::list<std::weak_ptr<Connection::Implementation>> connections_;
  bool isTerminating_ = false;
};

namespace {

/// launchd limits a daemon to 256 descriptors, which 256 clients or 128 router probes would use up.
void raiseDescriptorLimit() {
  constexpr rlim_t wanted = 4'096;
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min(limit.rlim_max, wanted);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

Result<std::unique_ptr<Listener>> Listener::create(const ServiceSettings& settings) {
  raiseDescriptorLimit();
  auto service = darwin::XPCConnection::adopt(xpc_connection_create_mach_service(
      settings.name.c_str(), dispatch_get_main_queue(), XPC_CONNECTION_MACH_SERVICE_LISTENER));
  if (!service) return Failure(0, settings.name + " cannot be registered");
  return std::make_unique<Implementation>(std::move(service));
}

}  // namespace platform::ipc
