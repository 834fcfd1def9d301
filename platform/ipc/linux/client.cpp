#include "platform/ipc/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <system_error>
#include <utility>

#include "platform/base/file_descriptor.h"
#include "platform/ipc/linux/endpoint.h"
#include "platform/ipc/linux/frames.h"

namespace platform::ipc {

class ClientChannel::Implementation {
 public:
  Implementation() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
  }

  bool open(const std::string& serviceName) {
    serviceName_ = serviceName;
    const auto path = endpointPath(serviceName);
    const int error = connectTo(path);
    // The queue of connections that wait to be accepted is full (connect(2)).
    if (error == EAGAIN) return false;
    if (error != 0) {
      end_ = End{.wasReached = false,
                 .reason = "cannot reach the helper at " + path + ": " + std::generic_category().message(error)};
    }
    return true;
  }

  void close() {
    // Ends the connection even if a forked child process still has the socket open.
    if (socket_) shutdown(socket_.get(), SHUT_RDWR);
    socket_.reset();
    reader_ = {};
    outgoing_.clear();
    sent_ = 0;
    isGreeted_ = false;
    end_.reset();
  }

  bool send(std::uint64_t id, const Dictionary& request) {
    auto bytes = encodeFrame({.id = id, .dictionary = request});
    if (!bytes) return false;
    outgoing_.push_back({id, std::move(*bytes)});
    // Nothing may be sent before the service's greeting: the service would close the connection.
    if (!isGreeted_) return true;
    flush();
    // Wakes the waiting thread, which must now wait until the socket is writable too.
    if (!outgoing_.empty()) wake();
    return true;
  }

  void withdraw(std::uint64_t id) {
    auto found = std::find_if(outgoing_.begin(), outgoing_.end(), [&](const auto& next) { return next.id == id; });
    if (found != outgoing_.end() && (found != outgoing_.begin() || sent_ == 0)) outgoing_.erase(found);
  }

  std::optional<Event> next() {
    while (auto frame = reader_.next()) {
      if (isGreeted_) return Reply{.id = frame->id, .dictionary = std::move(frame->dictionary)};
      isGreeted_ = isGreeting(*frame);
      if (!isGreeted_) {
        return end({.wasReached = true, .reason = "the endpoint belongs to another service than " + serviceName_});
      }
    }
    if (reader_.isMalformed()) return end({.wasReached = true, .reason = "the helper's answers are malformed"});
    if (end_) return end(std::move(*end_));
    return std::nullopt;
  }

  void wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline) {
    if (end_) return;
    const auto wanted = static_cast<short>(isGreeted_ && !outgoing_.empty() ? POLLIN | POLLOUT : POLLIN);
    std::array<pollfd, 2> descriptors{pollfd{wake_.get(), POLLIN, 0}, pollfd{socket_.get(), wanted, 0}};
    int timeout = -1;
    if (deadline) {
      using std::chrono::milliseconds;
      // A distant deadline is limited to an hour; waking up early does no harm.
      auto rest = std::clamp(std::chrono::ceil<milliseconds>(*deadline - Clock::now()), milliseconds(0),
                             milliseconds(std::chrono::hours(1)));
      timeout = static_cast<int>(rest.count());
    }
    lock.unlock();
    poll(descriptors.data(), descriptors.size(), timeout);
    lock.lock();
    if (descriptors[0].revents) {
      std::uint64_t calls;
      [[maybe_unused]] auto length = read(wake_.get(), &calls, sizeof calls);
    }
    // One read per turn, so that a flood of data cannot delay time limits or other threads that wait for the lock.
    if (descriptors[1].revents) receive();
    if (descriptors[1].revents & POLLOUT) flush();
  }

  void wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] auto length = write(wake_.get(), &one, sizeof one);
  }

 private:
  struct Outgoing {
    std::uint64_t id;
    Data bytes;
  };

  /// Returns 0 or an errno.
  int connectTo(const std::string& path) {
    const auto address = endpointAddress(path);
    if (!address) return ENAMETOOLONG;
    FileDescriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made || ::connect(made.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
      return errno;
    }
    socket_ = std::move(made);
    return 0;
  }

  bool isGreeting(const Frame& frame) const {
    const auto* service = frame.dictionary.get<std::string>("service");
    return frame.id == 0 && service && *service == serviceName_;
  }

  /// Closes the connection and returns why it has ended.
  End end(End reason) {
    close();
    return reason;
  }

  // Reading and sending never wait, so they cannot be interrupted (signal(7)).
  void receive() {
    auto length = recv(socket_.get(), chunk_.data(), chunk_.size(), 0);
    if (length > 0) return reader_.append({chunk_.data(), static_cast<std::size_t>(length)});
    // An error is EAGAIN or, like ECONNRESET, comes once before the end.
    if (length == 0) end_ = End{.wasReached = true, .reason = "the helper has closed the connection"};
  }

  void flush() {
    while (!outgoing_.empty()) {
      const auto& bytes = outgoing_.front().bytes;
      auto length = ::send(socket_.get(), bytes.data() + sent_, bytes.size() - sent_, MSG_NOSIGNAL);
      if (length < 0) {
        // The service has ended. receive() notices that, too, but only after the replies that the service still sent.
        if (errno != EAGAIN) shutdown(socket_.get(), SHUT_RDWR);
        return;
      }
      sent_ += static_cast<std::size_t>(length);
      if (sent_ < bytes.size()) continue;
      outgoing_.pop_front();
      sent_ = 0;
    }
  }

  FileDescriptor wake_;
  std::string serviceName_;
  FileDescriptor socket_;
  FrameReader reader_;
  std::array<std::uint8_t, 65'536> chunk_;
  std::deque<Outgoing> outgoing_;
  std::size_t sent_ = 0;  // bytes of the first outgoing request already sent
  bool isGreeted_ = false;
  std::optional<End> end_;
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
void ClientChannel::withdraw(std::uint64_t id) {
  implementation_->withdraw(id);
}
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
