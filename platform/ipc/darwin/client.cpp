#include "platform/ipc/client.h"

#include <condition_variable>
#include <deque>

#include "platform/dispatch/darwin/dispatch_reference.h"
#include "platform/ipc/darwin/values.h"

namespace platform::ipc {

namespace {

/// Events that XPC's queue leaves for the waiting thread. Shared with blocks that XPC keeps.
class Inbox {
 public:
  /// Adds an event of a connection, unless the connection has been closed or has reported its end.
  void add(std::uint64_t connection, ClientChannel::Event event) {
    std::lock_guard lock(mutex_);
    if (connection != open_) return;
    if (std::holds_alternative<ClientChannel::End>(event)) open_ = 0;
    events_.push_back(std::move(event));
    changed_.notify_all();
  }

  /// Sets the open connection, 0 for none, and drops the events of earlier ones.
  void setOpen(std::uint64_t connection) {
    std::lock_guard lock(mutex_);
    open_ = connection;
    events_.clear();
  }

  std::optional<ClientChannel::Event> take() {
    std::lock_guard lock(mutex_);
    if (events_.empty()) return std::nullopt;
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
  }

  void wait(std::optional<ClientChannel::Clock::time_point> deadline) {
    std::unique_lock lock(mutex_);
    auto isDue = [&] { return !events_.empty() || isWoken_; };
    if (deadline) {
      changed_.wait_until(lock, *deadline, isDue);
    } else {
      changed_.wait(lock, isDue);
    }
    isWoken_ = false;
  }

  void wake() {
    std::lock_guard lock(mutex_);
    isWoken_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<ClientChannel::Event> events_;
  std::uint64_t open_ = 0;
  bool isWoken_ = false;
};

ClientChannel::End endOf(xpc_object_t error) {
  // XPC looks up the service when the first message is sent, and reports a missing one as invalid. A service that
  // refuses its peer, or ends, interrupts the connection.
  return {.wasReached = error != XPC_ERROR_CONNECTION_INVALID, .reason = descriptionOf(error)};
}

}  // namespace

class ClientChannel::Implementation {
 public:
  Implementation()
      : queue_(darwin::DispatchQueue::adopt(dispatch_queue_create("BrimoClient", DISPATCH_QUEUE_SERIAL))) {}
  ~Implementation() { close(); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  bool open(const std::string& serviceName) {
    close();
    inbox_->setOpen(++number_);
    connection_ = darwin::XPCConnection::adopt(
        xpc_connection_create_mach_service(serviceName.c_str(), queue_.get(), XPC_CONNECTION_MACH_SERVICE_PRIVILEGED));
    auto inbox = inbox_;
    auto number = number_;
    xpc_connection_set_event_handler(connection_.get(), ^(xpc_object_t object) {
      if (xpc_get_type(object) == XPC_TYPE_ERROR) inbox->add(number, endOf(object));
    });
    xpc_connection_resume(connection_.get());
    return true;
  }

  // next() also calls this when the service has ended: XPC would start a new service for the next message, but the new
  // service would not have the pending requests.
  void close() {
    inbox_->setOpen(0);
    if (connection_) xpc_connection_cancel(connection_.get());
    connection_ = {};
  }

  bool send(std::uint64_t id, const Dictionary& request) {
    if (!connection_) return true;  // the connection has ended, so no reply follows
    auto message = darwin::XPCObject::adopt(xpc_dictionary_create(nullptr, nullptr, 0));
    setValues(message.get(), request);
    auto inbox = inbox_;
    auto number = number_;
    xpc_connection_send_message_with_reply(connection_.get(), message.get(), queue_.get(), ^(xpc_object_t reply) {
      if (xpc_get_type(reply) == XPC_TYPE_DICTIONARY) {
        inbox->add(number, Reply{.id = id, .dictionary = dictionaryOf(reply)});
      } else {
        inbox->add(number, endOf(reply));
      }
    });
    return true;
  }

  std::optional<Event> next() {
    auto event = inbox_->take();
    if (event && std::holds_alternative<End>(*event)) close();
    return event;
  }

  void wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline) {
    lock.unlock();
    inbox_->wait(deadline);
    lock.lock();
  }

  void wake() { inbox_->wake(); }

 private:
  darwin::DispatchQueue queue_;
  std::shared_ptr<Inbox> inbox_ = std::make_shared<Inbox>();
  darwin::XPCConnection connection_;
  std::uint64_t number_ = 0;  // number of the connection
};

ClientChannel::ClientChannel() : implementation_(std::make_unique<Implementation>()) {}
ClientChannel::~ClientChannel() = default;
bool ClientChannel::open(const std::string& serviceName) {
  return implementation_->open(serviceName);
}
void ClientChannel::close() {
  implementation_->close();
}
bool ClientChannel::send(std::uint64_t id, const Dictionary& request) {
  return implementation_->send(id, request);
}
// XPC already has the request.
void ClientChannel::withdraw(std::uint64_t) {}
std::optional<ClientChannel::Event> ClientChannel::next() {
  return implementation_->next();
}
void ClientChannel::wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline) {
  implementation_->wait(lock, deadline);
}
void ClientChannel::wake() {
  implementation_->wake();
}

}  // namespace platform::ipc
